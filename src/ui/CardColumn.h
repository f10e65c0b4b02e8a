#pragma once

#include <QList>
#include <QSet>
#include <QWidget>

class QACard;

// Stacks the answer cards top to bottom at the column's width. Each card's height is kept
// and recomputed only when that card changes, so a streaming answer in a long session
// costs the same as in a short one (a layout would measure every card again).
class CardColumn : public QWidget
{
    Q_OBJECT
public:
    static constexpr int margin = 10;
    static constexpr int spacing = 14;

    explicit CardColumn(QWidget *parent = nullptr);

    void insertCard(int index, QACard *card);
    // Deletes every card.
    void clear();
    int count() const { return int(m_cards.size()); }
    QACard *cardAt(int index) const { return m_cards.value(index); }
    const QList<QACard *> &cards() const { return m_cards; }

    // Measures one card again (after its content changed) and moves those below it.
    void refresh(QACard *card);
    // Measures every card again (after a width or font change).
    void refreshAll();
    void setColumnWidth(int width);
    // How many card measurements were made, for tests and the benchmark.
    int measurements() const { return m_measurements; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    int measure(QACard *card);
    void place(int from);

    QList<QACard *> m_cards;
    QList<int> m_heights;
    // Cards measured after a change they are still to post a layout request for.
    QSet<QACard *> m_measured;
    int m_width = 0;
    int m_measurements = 0;
};
