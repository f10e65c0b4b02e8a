#include "ui/Icons.h"

#include <QFontMetrics>
#include <QGuiApplication>
#include <QIconEngine>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>
#include <QPixmap>

#include <array>
#include <cmath>
#include <numbers>

namespace Icons {

namespace {
constexpr std::array kAll{
    Id::play, Id::stop, Id::mic, Id::micActive, Id::clock, Id::lastAnswer, Id::folder, Id::settings,
    Id::moon, Id::sun, Id::textSmaller, Id::textLarger, Id::info, Id::transcript, Id::recording, Id::close,
    Id::interviewer, Id::copilot, Id::person, Id::expand, Id::collapse, Id::arrowDown, Id::context, Id::job,
    Id::check, Id::warning, Id::pin, Id::record, Id::more, Id::screen,
};

const char *nameOf(Id id)
{
    switch (id) {
    case Id::play: return "media-playback-start";
    case Id::stop: return "media-playback-stop";
    case Id::mic: return "audio-input-microphone";
    case Id::micActive: return "audio-input-microphone-high";
    case Id::clock: return "appointment-soon";
    case Id::lastAnswer: return "task-complete";
    case Id::folder: return "folder";
    case Id::settings: return "preferences-system";
    case Id::moon: return "weather-clear-night";
    case Id::sun: return "weather-clear";
    case Id::textSmaller: return "zoom-out";
    case Id::textLarger: return "zoom-in";
    case Id::info: return "dialog-information";
    case Id::transcript: return "text-x-generic";
    case Id::recording: return "audio-x-generic";
    case Id::close: return "window-close";
    case Id::interviewer: return "system-users";
    case Id::copilot: return "starred";
    case Id::person: return "avatar-default";
    case Id::expand: return "pan-down";
    case Id::collapse: return "pan-end";
    case Id::arrowDown: return "go-down";
    case Id::context: return "document-open";
    case Id::job: return "document-properties";
    case Id::check: return "emblem-ok";
    case Id::warning: return "dialog-warning";
    case Id::pin: return "view-pin";
    case Id::record: return "media-record";
    case Id::more: return "view-more";
    case Id::screen: return "video-display";
    }
    return "";
}

QColor green() { return QColor(0x1f, 0x9d, 0x45); }
QColor red() { return QColor(0xd9, 0x30, 0x25); }
QColor accentFor(bool dark) { return dark ? QColor(0x6a, 0xa8, 0xff) : QColor(0x1f, 0x66, 0xd6); }

// Draws `id` on a 16 by 16 grid in `ink` (the palette's text colour) or its own signal colour.
void draw(Id id, QPainter &p, const QColor &ink, const QColor &accent, bool on)
{
    QPen pen(ink, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    p.setPen(pen);
    p.setBrush(Qt::NoBrush);
    const auto fill = [&p](const QColor &c) {
        p.setPen(Qt::NoPen);
        p.setBrush(c);
    };
    const auto sheet = [&p] {
        QPainterPath page;
        page.moveTo(3.5, 1.5);
        page.lineTo(9.5, 1.5);
        page.lineTo(12.5, 4.5);
        page.lineTo(12.5, 14.5);
        page.lineTo(3.5, 14.5);
        page.closeSubpath();
        p.drawPath(page);
    };
    switch (id) {
    case Id::play:
        fill(green());
        p.drawPolygon(QPolygonF({QPointF(4, 2.5), QPointF(13.5, 8), QPointF(4, 13.5)}));
        return;
    case Id::stop:
        fill(red());
        p.drawRoundedRect(QRectF(3, 3, 10, 10), 2, 2);
        return;
    case Id::record:
        // Red only while on (a checked "Save .wav"), so a red dot always means recording.
        if (on) {
            fill(red());
            p.drawEllipse(QRectF(3, 3, 10, 10));
        } else {
            p.drawEllipse(QRectF(3.5, 3.5, 9, 9));
        }
        return;
    case Id::mic:
    case Id::micActive: {
        const QColor c = id == Id::micActive ? green() : ink;
        p.setPen(QPen(c, 1.5, Qt::SolidLine, Qt::RoundCap));
        p.setBrush(id == Id::micActive ? QBrush(c) : QBrush(Qt::NoBrush));
        p.drawRoundedRect(QRectF(5.75, 1.5, 4.5, 8), 2.25, 2.25);
        p.setBrush(Qt::NoBrush);
        p.drawArc(QRectF(3.5, 4.5, 9, 8), 180 * 16, 180 * 16);
        p.drawLine(QPointF(8, 12.5), QPointF(8, 14.5));
        p.drawLine(QPointF(5.5, 14.5), QPointF(10.5, 14.5));
        return;
    }
    case Id::clock:
        p.drawEllipse(QRectF(2, 2, 12, 12));
        p.drawLine(QPointF(8, 8), QPointF(8, 4.5));
        p.drawLine(QPointF(8, 8), QPointF(10.5, 9.5));
        return;
    case Id::lastAnswer:
        p.drawArc(QRectF(1.5, 1.5, 12, 12), 30 * 16, 300 * 16);
        p.drawLine(QPointF(7.5, 7.5), QPointF(7.5, 4.5));
        p.drawLine(QPointF(7.5, 7.5), QPointF(9.5, 8.5));
        p.setPen(QPen(green(), 1.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.drawPolyline(QPolygonF({QPointF(9.5, 12), QPointF(11.5, 14), QPointF(15, 9.5)}));
        return;
    case Id::folder: {
        QPainterPath f;
        f.moveTo(1.5, 3.5);
        f.lineTo(6, 3.5);
        f.lineTo(7.5, 5);
        f.lineTo(14.5, 5);
        f.lineTo(14.5, 13);
        f.lineTo(1.5, 13);
        f.closeSubpath();
        p.drawPath(f);
        p.drawLine(QPointF(1.5, 7), QPointF(14.5, 7));
        return;
    }
    case Id::settings: {
        fill(ink);
        for (int i = 0; i < 8; ++i) {
            p.save();
            p.translate(8, 8);
            p.rotate(i * 45.0);
            p.drawRoundedRect(QRectF(-1.4, -7.2, 2.8, 3.5), 0.6, 0.6);
            p.restore();
        }
        QPainterPath gear;
        gear.addEllipse(QPointF(8, 8), 5.2, 5.2);
        gear.addEllipse(QPointF(8, 8), 2.1, 2.1);
        gear.setFillRule(Qt::OddEvenFill);
        p.drawPath(gear);
        return;
    }
    case Id::moon: {
        fill(ink);
        QPainterPath disc;
        disc.addEllipse(QRectF(2, 2, 12, 12));
        QPainterPath bite;
        bite.addEllipse(QRectF(5.5, 0, 11, 11));
        p.drawPath(disc.subtracted(bite));
        return;
    }
    case Id::sun:
        p.drawEllipse(QRectF(5, 5, 6, 6));
        for (int i = 0; i < 8; ++i) {
            const double a = i * std::numbers::pi / 4;
            p.drawLine(QPointF(8 + 4.8 * std::cos(a), 8 + 4.8 * std::sin(a)),
                       QPointF(8 + 6.8 * std::cos(a), 8 + 6.8 * std::sin(a)));
        }
        return;
    case Id::textSmaller:
    case Id::textLarger: {
        // A letter A, and a minus or plus beside it.
        const bool larger = id == Id::textLarger;
        p.drawPolyline(QPolygonF({QPointF(1.5, 14), QPointF(5.5, 3), QPointF(9.5, 14)}));
        p.drawLine(QPointF(3, 10), QPointF(8, 10));
        p.drawLine(QPointF(10.5, 5.5), QPointF(15, 5.5));
        if (larger)
            p.drawLine(QPointF(12.75, 3.25), QPointF(12.75, 7.75));
        return;
    }
    case Id::info:
        fill(accent);
        p.drawEllipse(QRectF(1, 1, 14, 14));
        p.setPen(QPen(Qt::white, 1.8, Qt::SolidLine, Qt::RoundCap));
        p.drawLine(QPointF(8, 7.2), QPointF(8, 11.8));
        p.drawPoint(QPointF(8, 4.6));
        return;
    case Id::warning: {
        fill(QColor(0xe0, 0x8a, 0x00));
        p.drawPolygon(QPolygonF({QPointF(8, 1.5), QPointF(15, 14), QPointF(1, 14)}));
        p.setPen(QPen(Qt::white, 1.8, Qt::SolidLine, Qt::RoundCap));
        p.drawLine(QPointF(8, 6), QPointF(8, 9.5));
        p.drawPoint(QPointF(8, 12));
        return;
    }
    case Id::transcript:
        sheet();
        p.drawLine(QPointF(5.5, 7.5), QPointF(10.5, 7.5));
        p.drawLine(QPointF(5.5, 10), QPointF(10.5, 10));
        p.drawLine(QPointF(5.5, 12.5), QPointF(8.5, 12.5));
        return;
    case Id::context:
        p.drawPolyline(QPolygonF({QPointF(5.5, 1.5), QPointF(13.5, 1.5), QPointF(13.5, 11.5)}));
        p.drawRect(QRectF(2.5, 4, 8.5, 10.5));
        p.drawLine(QPointF(4.5, 8), QPointF(9, 8));
        p.drawLine(QPointF(4.5, 10.5), QPointF(9, 10.5));
        return;
    case Id::job:
        p.drawRoundedRect(QRectF(1.5, 4.5, 13, 9.5), 1.5, 1.5);
        p.drawRect(QRectF(5.5, 2, 5, 2.5));
        p.drawLine(QPointF(1.5, 8.5), QPointF(14.5, 8.5));
        return;
    case Id::recording:
        for (int i = 0; i < 5; ++i) {
            const double h = std::array{3.0, 8.0, 12.0, 7.0, 4.0}[size_t(i)];
            const double x = 3 + i * 2.5;
            p.drawLine(QPointF(x, 8 - h / 2), QPointF(x, 8 + h / 2));
        }
        return;
    case Id::screen:
        p.drawRoundedRect(QRectF(1.5, 2.5, 13, 9), 1, 1);
        p.drawLine(QPointF(8, 11.5), QPointF(8, 14));
        p.drawLine(QPointF(5, 14.5), QPointF(11, 14.5));
        return;
    case Id::close:
        p.drawLine(QPointF(4, 4), QPointF(12, 12));
        p.drawLine(QPointF(12, 4), QPointF(4, 12));
        return;
    case Id::check:
        p.setPen(QPen(green(), 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.drawPolyline(QPolygonF({QPointF(3, 8.5), QPointF(6.5, 12), QPointF(13, 4.5)}));
        return;
    case Id::copilot: {
        fill(accent);
        const auto star = [&p](QPointF c, double r) {
            QPainterPath s;
            s.moveTo(c.x(), c.y() - r);
            s.quadTo(c, QPointF(c.x() + r, c.y()));
            s.quadTo(c, QPointF(c.x(), c.y() + r));
            s.quadTo(c, QPointF(c.x() - r, c.y()));
            s.quadTo(c, QPointF(c.x(), c.y() - r));
            p.drawPath(s);
        };
        star(QPointF(6.5, 9), 6);
        star(QPointF(12.5, 3.5), 3);
        return;
    }
    case Id::interviewer:
    case Id::person:
        fill(id == Id::interviewer ? accent : ink);
        p.drawEllipse(QRectF(5, 1.5, 6, 6));
        p.drawPie(QRectF(2, 9, 12, 12), 0, 180 * 16);
        return;
    case Id::expand:
        pen.setWidthF(2.2);
        p.setPen(pen);
        p.drawPolyline(QPolygonF({QPointF(3.5, 6), QPointF(8, 10.5), QPointF(12.5, 6)}));
        return;
    case Id::collapse:
        pen.setWidthF(2.2);
        p.setPen(pen);
        p.drawPolyline(QPolygonF({QPointF(6, 3.5), QPointF(10.5, 8), QPointF(6, 12.5)}));
        return;
    case Id::arrowDown:
        p.setPen(QPen(ink, 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.drawLine(QPointF(8, 2.5), QPointF(8, 13));
        p.drawPolyline(QPolygonF({QPointF(3.5, 8.5), QPointF(8, 13), QPointF(12.5, 8.5)}));
        return;
    case Id::pin:
        p.drawLine(QPointF(8, 10), QPointF(8, 15));
        p.drawPolygon(QPolygonF({QPointF(5, 1.5), QPointF(11, 1.5), QPointF(10, 3), QPointF(10.5, 7),
                                 QPointF(12.5, 10), QPointF(3.5, 10), QPointF(5.5, 7), QPointF(6, 3)}));
        return;
    case Id::more:
        fill(ink);
        for (double x : {3.0, 8.0, 13.0})
            p.drawEllipse(QPointF(x, 8), 1.6, 1.6);
        return;
    }
}

// Paints the glyph at the size asked for, in the colours of the application's palette at
// the time of painting.
class DrawnEngine final : public QIconEngine
{
public:
    explicit DrawnEngine(Id id) : m_id(id) {}

    void paint(QPainter *painter, const QRect &rect, QIcon::Mode mode, QIcon::State state) override
    {
        const QPalette pal = QGuiApplication::palette();
        const bool dark = pal.color(QPalette::Window).lightness() < pal.color(QPalette::WindowText).lightness();
        QColor ink = pal.color(QPalette::WindowText);
        QColor accent = accentFor(dark);
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        if (mode == QIcon::Disabled)
            painter->setOpacity(0.4);
        const double side = qMin(rect.width(), rect.height());
        painter->translate(rect.x() + (rect.width() - side) / 2.0, rect.y() + (rect.height() - side) / 2.0);
        painter->scale(side / 16.0, side / 16.0);
        draw(m_id, *painter, ink, accent, state == QIcon::On);
        painter->restore();
    }

    QPixmap pixmap(const QSize &size, QIcon::Mode mode, QIcon::State state) override
    {
        QPixmap pixmap(size);
        pixmap.fill(Qt::transparent);
        QPainter p(&pixmap);
        paint(&p, QRect(QPoint(0, 0), size), mode, state);
        return pixmap;
    }

    QSize actualSize(const QSize &size, QIcon::Mode, QIcon::State) override { return size; }
    QIconEngine *clone() const override { return new DrawnEngine(m_id); }
    QString key() const override { return QStringLiteral("KetterbloomDrawn"); }

private:
    Id m_id;
};
} // namespace

QString themeName(Id id)
{
    return QString::fromLatin1(nameOf(id));
}

bool themeInUse()
{
    // A theme that lacks any of our icons would mix its artwork with ours; then every icon
    // is drawn, so the window has one style.
    static const QString checkedFor = QIcon::themeName();
    static const bool complete = [] {
        if (QIcon::themeName().isEmpty())
            return false;
        for (Id id : kAll) {
            if (!QIcon::hasThemeIcon(themeName(id)))
                return false;
        }
        return true;
    }();
    return complete && checkedFor == QIcon::themeName();
}

QIcon drawnIcon(Id id)
{
    return QIcon(new DrawnEngine(id));
}

QIcon icon(Id id)
{
    if (themeInUse()) {
        QIcon themed = QIcon::fromTheme(themeName(id));
        if (!themed.isNull())
            return themed;
    }
    return drawnIcon(id);
}

int sizeFor(const QFontMetrics &metrics)
{
    return qMax(12, int(std::lround(metrics.height() * 0.9)));
}

} // namespace Icons
