#include "ui/Theme.h"

#include "ui/AppStyle.h"

#include <QApplication>

namespace Theme {

namespace {
QPalette g_system;
bool g_installed = false;
Scheme g_current = Scheme::system;
} // namespace

void install()
{
    if (g_installed)
        return;
    g_installed = true;
    g_system = QApplication::palette();
    QApplication::setStyle(new AppStyle);
    // The Fusion style brings its own light palette; keep the desktop's when it is dark.
    if (!isDark(g_system))
        g_system = lightPalette();
}

namespace {
// The colours that set our light and dark palettes apart; everything else is shared.
struct Colors
{
    QColor window, base, text, button, highlight, disabledText;
    QColor alternateBase, toolTipBase;
    QColor light, midlight, mid, dark, shadow;
    QColor link, linkVisited;
    QColor placeholder;
};

QPalette paletteOf(const Colors &c)
{
    QPalette p;
    p.setColor(QPalette::Window, c.window);
    p.setColor(QPalette::WindowText, c.text);
    p.setColor(QPalette::Base, c.base);
    p.setColor(QPalette::AlternateBase, c.alternateBase);
    p.setColor(QPalette::ToolTipBase, c.toolTipBase);
    p.setColor(QPalette::ToolTipText, c.text);
    // Secondary text (hints, the empty state) at no less than 4.5:1 on the window.
    p.setColor(QPalette::PlaceholderText, c.placeholder);
    p.setColor(QPalette::Text, c.text);
    p.setColor(QPalette::Button, c.button);
    p.setColor(QPalette::ButtonText, c.text);
    p.setColor(QPalette::BrightText, Qt::white);
    p.setColor(QPalette::Light, c.light);
    p.setColor(QPalette::Midlight, c.midlight);
    p.setColor(QPalette::Mid, c.mid);
    p.setColor(QPalette::Dark, c.dark);
    p.setColor(QPalette::Shadow, c.shadow);
    p.setColor(QPalette::Highlight, c.highlight);
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, c.link);
    p.setColor(QPalette::LinkVisited, c.linkVisited);
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, c.disabledText);
    return p;
}
} // namespace

QPalette lightPalette()
{
    const QColor highlight(0x1f, 0x66, 0xd6);
    return paletteOf({QColor(0xf4, 0xf4, 0xf6), QColor(0xff, 0xff, 0xff), QColor(0x1c, 0x1c, 0x1e),
                      QColor(0xec, 0xec, 0xef), highlight, QColor(0xa0, 0xa0, 0xa6),
                      QColor(0xf0, 0xf0, 0xf3), QColor(0xff, 0xff, 0xe8),
                      Qt::white, QColor(0xe2, 0xe2, 0xe6), QColor(0xc6, 0xc6, 0xcc), QColor(0xa0, 0xa0, 0xa8),
                      QColor(0x60, 0x60, 0x66),
                      highlight, QColor(0x7a, 0x4c, 0xd9), QColor(0x60, 0x60, 0x66)});
}

QPalette darkPalette()
{
    return paletteOf({QColor(0x24, 0x24, 0x27), QColor(0x1b, 0x1b, 0x1e), QColor(0xec, 0xec, 0xef),
                      QColor(0x34, 0x34, 0x38), QColor(0x2d, 0x6f, 0xd6), QColor(0x8a, 0x8a, 0x90),
                      QColor(0x2c, 0x2c, 0x30), QColor(0x3a, 0x3a, 0x3e),
                      QColor(0x4a, 0x4a, 0x50), QColor(0x3e, 0x3e, 0x44), QColor(0x2e, 0x2e, 0x32),
                      QColor(0x18, 0x18, 0x1a), QColor(0x0a, 0x0a, 0x0c),
                      QColor(0x6a, 0xa8, 0xff), QColor(0xb3, 0x8c, 0xff), QColor(0xa4, 0xa4, 0xaa)});
}

QPalette systemPalette()
{
    return g_installed ? g_system : QApplication::palette();
}

void apply(Scheme scheme)
{
    g_current = scheme;
    switch (scheme) {
    case Scheme::system: QApplication::setPalette(systemPalette()); break;
    case Scheme::light: QApplication::setPalette(lightPalette()); break;
    case Scheme::dark: QApplication::setPalette(darkPalette()); break;
    }
}

Scheme current()
{
    return g_current;
}

bool isDark(const QPalette &palette)
{
    return palette.color(QPalette::Window).lightness() < palette.color(QPalette::WindowText).lightness();
}

} // namespace Theme
