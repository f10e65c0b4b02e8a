#include "ui/StatusPill.h"

#include "ui/Colors.h"

#include <QEvent>
#include <QFontMetrics>
#include <QPainter>

namespace {
constexpr int kDot = 7;
constexpr int kGap = 5;
constexpr int kPadX = 6;
constexpr int kPadY = 3;
} // namespace

StatusPill::StatusPill(QWidget *parent)
    : QWidget(parent)
{
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAccessibleName(tr("Connection status"));
    setStatus(RealtimeStatus::idle());
}

QString StatusPill::labelFor(RealtimeStatus::Kind kind)
{
    switch (kind) {
    case RealtimeStatus::Kind::idle: return tr("Idle");
    case RealtimeStatus::Kind::connecting: return tr("Connecting…");
    case RealtimeStatus::Kind::connected: return tr("Live");
    case RealtimeStatus::Kind::reconnecting: return tr("Reconnecting…");
    case RealtimeStatus::Kind::failed: return tr("Error");
    }
    return {};
}

QColor StatusPill::colorFor(RealtimeStatus::Kind kind)
{
    switch (kind) {
    case RealtimeStatus::Kind::idle: return Colors::grey();
    case RealtimeStatus::Kind::connecting:
    case RealtimeStatus::Kind::reconnecting: return Colors::orange();
    case RealtimeStatus::Kind::connected: return Colors::green();
    case RealtimeStatus::Kind::failed: return Colors::red();
    }
    return Colors::grey();
}

void StatusPill::setStatus(const RealtimeStatus &status, bool starting)
{
    const bool startingUp = starting && status.kind() == RealtimeStatus::Kind::idle;
    const QString text = startingUp ? tr("Starting…") : labelFor(status.kind());
    const QColor color = startingUp ? Colors::orange() : colorFor(status.kind());
    setToolTip(status.isFailed() && !status.message().isEmpty() ? status.message() : QString());
    if (text == m_text && color == m_color)
        return;
    m_text = text;
    m_color = color;
    setAccessibleDescription(m_text);
    updateGeometry();
    update();
}

QFont StatusPill::captionFont() const
{
    QFont f = font();
    f.setPointSizeF(qMax(8.0, f.pointSizeF() - 1.0));
    return f;
}

QSize StatusPill::sizeHint() const
{
    const QFontMetrics fm(captionFont());
    // Wide enough for the longest caption so the bar does not shift as the status changes.
    const int textWidth = qMax(fm.horizontalAdvance(m_text), fm.horizontalAdvance(tr("Reconnecting…")));
    return {kPadX + kDot + kGap + textWidth + kPadX, qMax(kDot, fm.height()) + 2 * kPadY};
}

void StatusPill::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    // The pill hugs the caption; the widget keeps room for the longest one.
    const int textWidth = QFontMetrics(captionFont()).horizontalAdvance(m_text);
    const QRectF pill = QRectF(0, 0, qMin(width(), kPadX + kDot + kGap + textWidth + kPadX), height())
                            .adjusted(0.5, 0.5, -0.5, -0.5);
    p.setPen(Qt::NoPen);
    p.setBrush(Colors::withAlpha(palette().color(QPalette::WindowText), 0.07));
    p.drawRoundedRect(pill, pill.height() / 2, pill.height() / 2);

    const qreal cy = height() / 2.0;
    p.setBrush(m_color);
    p.drawEllipse(QRectF(kPadX, cy - kDot / 2.0, kDot, kDot));

    p.setFont(captionFont());
    p.setPen(palette().color(QPalette::WindowText));
    p.drawText(QRect(kPadX + kDot + kGap, 0, width() - kPadX - kDot - kGap, height()),
               Qt::AlignVCenter | Qt::AlignLeft, m_text);
}

void StatusPill::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::FontChange)
        updateGeometry();
    QWidget::changeEvent(event);
}
