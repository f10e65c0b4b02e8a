#include "ui/CardColumn.h"

#include "ui/QACard.h"

#include <QEvent>

CardColumn::CardColumn(QWidget *parent)
    : QWidget(parent)
{
}

int CardColumn::measure(QACard *card)
{
    // Before the column knows its width there is nothing sensible to measure against; the
    // first width measures every card.
    if (m_width <= 2 * margin)
        return 0;
    ++m_measurements;
    const int inner = m_width - 2 * margin;
    return card->hasHeightForWidth() ? card->heightForWidth(inner) : card->sizeHint().height();
}

void CardColumn::insertCard(int index, QACard *card)
{
    index = qBound(0, index, int(m_cards.size()));
    card->setParent(this);
    card->installEventFilter(this);
    m_cards.insert(index, card);
    m_heights.insert(index, measure(card));
    card->show();
    place(index);
}

void CardColumn::clear()
{
    qDeleteAll(m_cards);
    m_cards.clear();
    m_measured.clear();
    m_heights.clear();
    place(0);
}

void CardColumn::refresh(QACard *card)
{
    const int index = int(m_cards.indexOf(card));
    if (index < 0)
        return;
    const int height = measure(card);
    m_measured.insert(card);
    if (height == m_heights[index] && card->width() == qMax(1, m_width - 2 * margin))
        return;
    m_heights[index] = height;
    place(index);
}

void CardColumn::refreshAll()
{
    for (int i = 0; i < m_cards.size(); ++i)
        m_heights[i] = measure(m_cards[i]);
    place(0);
}

void CardColumn::setColumnWidth(int width)
{
    if (width == m_width)
        return;
    m_width = width;
    refreshAll();
}

void CardColumn::place(int from)
{
    const int inner = qMax(1, m_width - 2 * margin);
    int y = margin;
    for (int i = 0; i < from; ++i)
        y += m_heights[i] + spacing;
    for (int i = from; i < m_cards.size(); ++i) {
        m_cards[i]->setGeometry(margin, y, inner, m_heights[i]);
        y += m_heights[i] + spacing;
    }
    const int total = m_cards.isEmpty() ? 0 : y - spacing + margin;
    resize(m_width, total);
}

bool CardColumn::eventFilter(QObject *watched, QEvent *event)
{
    // A card whose content changed in a way nobody told us about (a font, a toggle).
    if (event->type() == QEvent::LayoutRequest) {
        if (auto *card = qobject_cast<QACard *>(watched)) {
            if (!m_measured.remove(card))
                refresh(card);
            m_measured.remove(card);
        }
    }
    return QWidget::eventFilter(watched, event);
}
