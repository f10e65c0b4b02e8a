#include "ui/AppStyle.h"

#include "ui/Colors.h"

#include <QPainter>
#include <QStyleFactory>
#include <QStyleOption>

AppStyle::AppStyle()
    : QProxyStyle(QStyleFactory::create(QStringLiteral("Fusion")))
{
}

void AppStyle::drawPrimitive(PrimitiveElement element, const QStyleOption *option, QPainter *painter,
                             const QWidget *widget) const
{
    if (element != PE_IndicatorCheckBox && element != PE_IndicatorRadioButton) {
        QProxyStyle::drawPrimitive(element, option, painter, widget);
        return;
    }
    const QPalette &pal = option->palette;
    const bool enabled = option->state & State_Enabled;
    const bool on = option->state & State_On;
    const bool partial = option->state & State_NoChange;
    QColor border = Colors::controlBorder(pal);
    if (option->state & State_HasFocus || option->state & State_MouseOver)
        border = pal.color(QPalette::Highlight);
    const QColor mark = pal.color(QPalette::Highlight);

    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    if (!enabled)
        painter->setOpacity(0.5);
    const QRectF box = QRectF(option->rect).adjusted(1, 1, -1, -1);
    if (element == PE_IndicatorRadioButton) {
        const double side = qMin(box.width(), box.height());
        const QRectF circle(box.center().x() - side / 2, box.center().y() - side / 2, side, side);
        painter->setPen(QPen(border, 1.4));
        painter->setBrush(pal.color(QPalette::Base));
        painter->drawEllipse(circle);
        if (on) {
            painter->setPen(Qt::NoPen);
            painter->setBrush(mark);
            painter->drawEllipse(circle.center(), side * 0.28, side * 0.28);
        }
    } else {
        if (on || partial) {
            painter->setPen(QPen(mark, 1.4));
            painter->setBrush(mark);
        } else {
            painter->setPen(QPen(border, 1.4));
            painter->setBrush(pal.color(QPalette::Base));
        }
        painter->drawRoundedRect(box, 2.5, 2.5);
        const QColor tick = pal.color(QPalette::HighlightedText);
        painter->setPen(QPen(tick, qMax(1.6, box.width() / 7), Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        const double w = box.width();
        const double h = box.height();
        if (partial) {
            painter->drawLine(QPointF(box.left() + w * 0.25, box.center().y()),
                              QPointF(box.right() - w * 0.25, box.center().y()));
        } else if (on) {
            painter->drawPolyline(QPolygonF({QPointF(box.left() + w * 0.22, box.top() + h * 0.52),
                                             QPointF(box.left() + w * 0.42, box.top() + h * 0.72),
                                             QPointF(box.left() + w * 0.78, box.top() + h * 0.30)}));
        }
    }
    painter->restore();
}
