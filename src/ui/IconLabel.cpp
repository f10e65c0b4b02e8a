#include "ui/IconLabel.h"

#include <QEvent>
#include <QPainter>

IconLabel::IconLabel(Icons::Id id, QWidget *parent)
    : QWidget(parent)
    , m_id(id)
    , m_icon(Icons::icon(id))
{
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

void IconLabel::setIcon(Icons::Id id)
{
    if (id == m_id)
        return;
    m_id = id;
    m_icon = Icons::icon(id);
    update();
}

void IconLabel::setDisabledLook(bool disabled)
{
    if (disabled == m_disabledLook)
        return;
    m_disabledLook = disabled;
    update();
}

int IconLabel::iconSize() const
{
    return Icons::sizeFor(fontMetrics());
}

QSize IconLabel::sizeHint() const
{
    return {iconSize(), iconSize()};
}

void IconLabel::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    const int side = qMin(width(), height());
    const QRect r((width() - side) / 2, (height() - side) / 2, side, side);
    m_icon.paint(&p, r, Qt::AlignCenter, m_disabledLook ? QIcon::Disabled : QIcon::Normal);
}

void IconLabel::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::FontChange)
        updateGeometry();
    QWidget::changeEvent(event);
}
