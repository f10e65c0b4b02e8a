#include "ui/Theme.h"

#include <QApplication>
#include <QStyleFactory>

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
    if (QStyle *fusion = QStyleFactory::create(QStringLiteral("Fusion")))
        QApplication::setStyle(fusion);
    // The Fusion style brings its own light palette; keep the desktop's when it is dark.
    if (!isDark(g_system))
        g_system = lightPalette();
}

QPalette lightPalette()
{
    QPalette p;
    const QColor window(0xf4, 0xf4, 0xf6);
    const QColor base(0xff, 0xff, 0xff);
    const QColor text(0x1c, 0x1c, 0x1e);
    const QColor button(0xec, 0xec, 0xef);
    const QColor highlight(0x2f, 0x7c, 0xf6);
    const QColor disabledText(0xa0, 0xa0, 0xa6);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, QColor(0xf0, 0xf0, 0xf3));
    p.setColor(QPalette::ToolTipBase, QColor(0xff, 0xff, 0xe8));
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::PlaceholderText, QColor(0x8e, 0x8e, 0x93));
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, button);
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::BrightText, Qt::white);
    p.setColor(QPalette::Light, Qt::white);
    p.setColor(QPalette::Midlight, QColor(0xe2, 0xe2, 0xe6));
    p.setColor(QPalette::Mid, QColor(0xc6, 0xc6, 0xcc));
    p.setColor(QPalette::Dark, QColor(0xa0, 0xa0, 0xa8));
    p.setColor(QPalette::Shadow, QColor(0x60, 0x60, 0x66));
    p.setColor(QPalette::Highlight, highlight);
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, highlight);
    p.setColor(QPalette::LinkVisited, QColor(0x7a, 0x4c, 0xd9));
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, disabledText);
    return p;
}

QPalette darkPalette()
{
    QPalette p;
    const QColor window(0x24, 0x24, 0x27);
    const QColor base(0x1b, 0x1b, 0x1e);
    const QColor text(0xec, 0xec, 0xef);
    const QColor button(0x34, 0x34, 0x38);
    const QColor highlight(0x3d, 0x8b, 0xff);
    const QColor disabledText(0x6c, 0x6c, 0x72);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, QColor(0x2c, 0x2c, 0x30));
    p.setColor(QPalette::ToolTipBase, QColor(0x3a, 0x3a, 0x3e));
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::PlaceholderText, QColor(0x8e, 0x8e, 0x93));
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, button);
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::BrightText, Qt::white);
    p.setColor(QPalette::Light, QColor(0x4a, 0x4a, 0x50));
    p.setColor(QPalette::Midlight, QColor(0x3e, 0x3e, 0x44));
    p.setColor(QPalette::Mid, QColor(0x2e, 0x2e, 0x32));
    p.setColor(QPalette::Dark, QColor(0x18, 0x18, 0x1a));
    p.setColor(QPalette::Shadow, QColor(0x0a, 0x0a, 0x0c));
    p.setColor(QPalette::Highlight, highlight);
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, QColor(0x6a, 0xa8, 0xff));
    p.setColor(QPalette::LinkVisited, QColor(0xb3, 0x8c, 0xff));
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, disabledText);
    return p;
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
