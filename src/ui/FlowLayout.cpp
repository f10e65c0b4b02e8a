#include "ui/FlowLayout.h"

#include <QWidget>

FlowLayout::FlowLayout(QWidget *parent, int hSpacing, int vSpacing)
    : QLayout(parent)
    , m_hSpacing(hSpacing)
    , m_vSpacing(vSpacing)
{
}

FlowLayout::~FlowLayout()
{
    while (QLayoutItem *item = takeAt(0))
        delete item;
}

void FlowLayout::addItem(QLayoutItem *item)
{
    m_items.append(item);
}

int FlowLayout::count() const
{
    return int(m_items.size());
}

QLayoutItem *FlowLayout::itemAt(int index) const
{
    return m_items.value(index);
}

QLayoutItem *FlowLayout::takeAt(int index)
{
    if (index < 0 || index >= m_items.size())
        return nullptr;
    return m_items.takeAt(index);
}

int FlowLayout::heightForWidth(int width) const
{
    return doLayout(QRect(0, 0, width, 0), true);
}

QSize FlowLayout::minimumSize() const
{
    QSize size;
    for (const QLayoutItem *item : m_items)
        size = size.expandedTo(item->minimumSize());
    const QMargins m = contentsMargins();
    return size + QSize(m.left() + m.right(), m.top() + m.bottom());
}

QSize FlowLayout::sizeHint() const
{
    // One row holding everything.
    int width = 0;
    int height = 0;
    int visible = 0;
    for (const QLayoutItem *item : m_items) {
        if (item->isEmpty())
            continue;
        const QSize hint = item->sizeHint();
        width += hint.width();
        height = qMax(height, hint.height());
        ++visible;
    }
    width += qMax(0, visible - 1) * m_hSpacing;
    const QMargins m = contentsMargins();
    return {width + m.left() + m.right(), height + m.top() + m.bottom()};
}

void FlowLayout::setGeometry(const QRect &rect)
{
    QLayout::setGeometry(rect);
    doLayout(rect, false);
}

int FlowLayout::doLayout(const QRect &rect, bool testOnly) const
{
    const QMargins m = contentsMargins();
    const QRect area = rect.adjusted(m.left(), m.top(), -m.right(), -m.bottom());
    int x = area.x();
    int y = area.y();
    int lineHeight = 0;
    // Items of one row are centred vertically on the row; collect them first.
    QList<QPair<QLayoutItem *, QPoint>> row;
    auto flushRow = [&] {
        if (!testOnly) {
            for (const auto &[item, pos] : row) {
                const QSize hint = item->sizeHint();
                item->setGeometry(QRect(QPoint(pos.x(), pos.y() + (lineHeight - hint.height()) / 2), hint));
            }
        }
        row.clear();
    };
    for (QLayoutItem *item : m_items) {
        if (item->isEmpty())
            continue;
        const QSize hint = item->sizeHint();
        int nextX = x + hint.width() + m_hSpacing;
        if (nextX - m_hSpacing > area.right() + 1 && lineHeight > 0) {
            flushRow();
            x = area.x();
            y += lineHeight + m_vSpacing;
            nextX = x + hint.width() + m_hSpacing;
            lineHeight = 0;
        }
        row.append({item, QPoint(x, y)});
        x = nextX;
        lineHeight = qMax(lineHeight, hint.height());
    }
    flushRow();
    return y + lineHeight - rect.y() + m.bottom();
}
