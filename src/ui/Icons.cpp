#include "ui/Icons.h"

#include <QApplication>
#include <QHash>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QStyle>

#include <cmath>
#include <numbers>

namespace Icons {

namespace {
struct Entry
{
    const char *theme;
    QStyle::StandardPixmap fallback;
};

Entry entry(Id id)
{
    switch (id) {
    case Id::play: return {"media-playback-start", QStyle::SP_MediaPlay};
    case Id::stop: return {"media-playback-stop", QStyle::SP_MediaStop};
    case Id::mic: return {"audio-input-microphone", QStyle::SP_MediaVolume};
    case Id::micActive: return {"audio-input-microphone-high", QStyle::SP_MediaVolume};
    case Id::clock: return {"appointment-soon", QStyle::SP_BrowserReload};
    case Id::lastAnswer: return {"task-complete", QStyle::SP_DialogApplyButton};
    case Id::folder: return {"folder", QStyle::SP_DirIcon};
    case Id::settings: return {"preferences-system", QStyle::SP_FileDialogDetailedView};
    case Id::moon: return {"weather-clear-night", QStyle::SP_TitleBarShadeButton};
    case Id::sun: return {"weather-clear", QStyle::SP_TitleBarUnshadeButton};
    case Id::textSmaller: return {"zoom-out", QStyle::SP_ArrowDown};
    case Id::textLarger: return {"zoom-in", QStyle::SP_ArrowUp};
    case Id::info: return {"dialog-information", QStyle::SP_MessageBoxInformation};
    case Id::transcript: return {"text-x-generic", QStyle::SP_FileIcon};
    case Id::recording: return {"audio-x-generic", QStyle::SP_MediaVolume};
    case Id::close: return {"window-close", QStyle::SP_TitleBarCloseButton};
    case Id::interviewer: return {"system-users", QStyle::SP_MessageBoxQuestion};
    case Id::copilot: return {"starred", QStyle::SP_DialogHelpButton};
    case Id::person: return {"avatar-default", QStyle::SP_DirHomeIcon};
    case Id::expand: return {"pan-down-symbolic", QStyle::SP_ArrowDown};
    case Id::collapse: return {"pan-end-symbolic", QStyle::SP_ArrowRight};
    case Id::arrowDown: return {"go-down", QStyle::SP_ArrowDown};
    case Id::context: return {"document-open", QStyle::SP_DialogOpenButton};
    case Id::job: return {"document-properties", QStyle::SP_FileDialogInfoView};
    case Id::check: return {"emblem-ok", QStyle::SP_DialogApplyButton};
    case Id::warning: return {"dialog-warning", QStyle::SP_MessageBoxWarning};
    }
    return {"", QStyle::SP_CustomBase};
}
} // namespace

QString themeName(Id id)
{
    return QString::fromLatin1(entry(id).theme);
}

namespace {
// Icons the style has no fitting standard icon for, drawn in a neutral grey that reads on
// both the light and the dark palette. Coordinates are on a 16 by 16 grid.
bool drawFallback(Id id, QPainter &p)
{
    const QColor ink(0x86, 0x86, 0x8c);
    const QColor accent(0x2f, 0x7c, 0xf6);
    QPen pen(ink, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    p.setPen(pen);
    p.setBrush(Qt::NoBrush);
    switch (id) {
    case Id::play: {
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(0x2f, 0xb3, 0x4f));
        p.drawPolygon(QPolygonF({QPointF(4, 2.5), QPointF(13.5, 8), QPointF(4, 13.5)}));
        return true;
    }
    case Id::stop:
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(0xe5, 0x39, 0x35));
        p.drawRoundedRect(QRectF(3, 3, 10, 10), 2, 2);
        return true;
    case Id::mic:
    case Id::micActive: {
        const QColor c = id == Id::micActive ? QColor(0x2f, 0xb3, 0x4f) : ink;
        p.setPen(QPen(c, 1.5, Qt::SolidLine, Qt::RoundCap));
        p.setBrush(id == Id::micActive ? c : Qt::NoBrush);
        p.drawRoundedRect(QRectF(5.75, 1.5, 4.5, 8), 2.25, 2.25);
        p.setBrush(Qt::NoBrush);
        p.drawArc(QRectF(3.5, 4.5, 9, 8), 180 * 16, 180 * 16);
        p.drawLine(QPointF(8, 12.5), QPointF(8, 14.5));
        p.drawLine(QPointF(5.5, 14.5), QPointF(10.5, 14.5));
        return true;
    }
    case Id::clock:
        p.drawEllipse(QRectF(2, 2, 12, 12));
        p.drawLine(QPointF(8, 8), QPointF(8, 4.5));
        p.drawLine(QPointF(8, 8), QPointF(10.5, 9.5));
        return true;
    case Id::settings: {
        p.setPen(Qt::NoPen);
        p.setBrush(ink);
        QPainterPath gear;
        for (int i = 0; i < 8; ++i) {
            p.save();
            p.translate(8, 8);
            p.rotate(i * 45.0);
            p.drawRoundedRect(QRectF(-1.4, -7.2, 2.8, 3.5), 0.6, 0.6);
            p.restore();
        }
        gear.addEllipse(QPointF(8, 8), 5.2, 5.2);
        gear.addEllipse(QPointF(8, 8), 2.1, 2.1);
        gear.setFillRule(Qt::OddEvenFill);
        p.drawPath(gear);
        return true;
    }
    case Id::moon: {
        p.setPen(Qt::NoPen);
        p.setBrush(ink);
        QPainterPath disc;
        disc.addEllipse(QRectF(2, 2, 12, 12));
        QPainterPath bite;
        bite.addEllipse(QRectF(5.5, 0, 11, 11));
        p.drawPath(disc.subtracted(bite));
        return true;
    }
    case Id::sun: {
        p.setBrush(Qt::NoBrush);
        p.drawEllipse(QRectF(5, 5, 6, 6));
        for (int i = 0; i < 8; ++i) {
            const double a = i * std::numbers::pi / 4;
            p.drawLine(QPointF(8 + 4.8 * std::cos(a), 8 + 4.8 * std::sin(a)),
                       QPointF(8 + 6.8 * std::cos(a), 8 + 6.8 * std::sin(a)));
        }
        return true;
    }
    case Id::textSmaller:
    case Id::textLarger: {
        QFont f = QApplication::font();
        f.setBold(true);
        f.setPixelSize(id == Id::textLarger ? 15 : 10);
        p.setFont(f);
        p.drawText(QRectF(0, 0, 16, 16), Qt::AlignCenter, QStringLiteral("A"));
        return true;
    }
    case Id::copilot: {
        p.setPen(Qt::NoPen);
        p.setBrush(accent);
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
        return true;
    }
    case Id::interviewer: {
        p.setPen(Qt::NoPen);
        p.setBrush(accent);
        p.drawEllipse(QRectF(5, 1.5, 6, 6));
        p.drawPie(QRectF(2, 9, 12, 12), 0, 180 * 16);
        return true;
    }
    case Id::person:
        p.setPen(Qt::NoPen);
        p.setBrush(ink);
        p.drawEllipse(QRectF(5, 1.5, 6, 6));
        p.drawPie(QRectF(2, 9, 12, 12), 0, 180 * 16);
        return true;
    case Id::expand:
        pen.setWidthF(2.2);
        p.setPen(pen);
        p.drawPolyline(QPolygonF({QPointF(3.5, 6), QPointF(8, 10.5), QPointF(12.5, 6)}));
        return true;
    case Id::collapse:
        pen.setWidthF(2.2);
        p.setPen(pen);
        p.drawPolyline(QPolygonF({QPointF(6, 3.5), QPointF(10.5, 8), QPointF(6, 12.5)}));
        return true;
    case Id::arrowDown:
        p.setPen(QPen(Qt::white, 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.drawLine(QPointF(8, 2.5), QPointF(8, 13));
        p.drawPolyline(QPolygonF({QPointF(3.5, 8.5), QPointF(8, 13), QPointF(12.5, 8.5)}));
        return true;
    default:
        return false;
    }
}

QIcon drawnIcon(Id id)
{
    QIcon result;
    for (int size : {16, 32, 64}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter p(&pixmap);
        p.setRenderHint(QPainter::Antialiasing);
        p.setRenderHint(QPainter::TextAntialiasing);
        p.scale(size / 16.0, size / 16.0);
        if (!drawFallback(id, p))
            return {};
        p.end();
        result.addPixmap(pixmap);
    }
    return result;
}
} // namespace

QIcon icon(Id id)
{
    const Entry e = entry(id);
    QIcon themed = QIcon::fromTheme(QString::fromLatin1(e.theme));
    if (!themed.isNull())
        return themed;
    static QHash<int, QIcon> drawn;
    auto it = drawn.find(int(id));
    if (it == drawn.end())
        it = drawn.insert(int(id), drawnIcon(id));
    if (!it->isNull())
        return *it;
    if (QApplication::style())
        return QApplication::style()->standardIcon(e.fallback);
    return {};
}

} // namespace Icons
