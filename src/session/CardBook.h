#pragma once

#include "realtime/RealtimeTypes.h"
#include "session/QAPair.h"

#include <QAbstractListModel>
#include <QHash>
#include <QList>
#include <QString>

#include <functional>

// Whether `text`, heard `secondsSinceQuestion` after `previous`'s question was last set,
// goes on with that question instead of asking a new one: within `window` seconds (0: never),
// it opens with a joining word ("and", "also", "for example", …), starts in lower case, or
// follows a question that did not end in . ? or !. A screen question is never extended.
bool isFollowUp(const QAPair &previous, const QString &text, double secondsSinceQuestion, double window);

// The question and answer cards of the window, oldest first, and which card each of the
// service's input items (turns) belongs to. A list model of one column whose rows are the
// cards (CardRole holds the QAPair): an appended card inserts a row, an edit changes one,
// a removal removes one, and a sweep of several resets the model. Edits go through card(),
// followed by changed(). Not cleared by Start or Stop. Lives on the GUI thread.
class CardBook : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Role { CardRole = Qt::UserRole + 1 };

    explicit CardBook(QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;

    const QList<QAPair> &cards() const { return m_cards; }
    int size() const { return int(m_cards.size()); }
    bool isEmpty() const { return m_cards.isEmpty(); }
    const QAPair &at(int index) const { return m_cards.at(index); }
    const QAPair &last() const { return m_cards.last(); }
    // The card to edit; call changed(index) when done.
    QAPair &card(int index) { return m_cards[index]; }
    void changed(int index);
    void append(const QAPair &card);
    void removeAt(int index);
    // Removes every card `doomed` names; true when one went.
    bool removeIf(const std::function<bool(const QAPair &)> &doomed);
    // Removes the finished cards with nothing on them (no question, answer, words of the
    // user, or failure); a turn card still waiting for its transcript stays.
    bool removeEmptyComplete();

    // Newest first; -1 when none.
    int indexOf(const QString &cardID) const;
    int indexOfResponse(const QString &responseID) const;
    // The nearest earlier card with a question, or -1 when an unknown question (failed,
    // missing, still being heard) sits in between.
    int previousQuestionCard(int index) const;

    // Turns: the card an input item's question belongs to.
    int cardForItem(const QString &itemID) const;
    void assignItem(const QString &itemID, const QString &cardID);
    bool hasItemFor(const QString &cardID) const;
    // The items of card `from` belong to `to` from now on (a follow-up merged into it).
    void moveItems(const QString &from, const QString &to);
    void forgetItems() { m_cardOfItem.clear(); }

    // A card opened for the user's words before any question, on which nothing has landed.
    static bool isEmptyPlaceholder(const QAPair &card);
    // Finished cards only, as the realtime service's history: an unfinished one is asked
    // again after a reconnect.
    History history() const;
    // "[HH:mm:ss] Q: …\nA: …" blocks joined by a blank line.
    QString exportText() const;

private:
    QList<QAPair> m_cards;
    QHash<QString, QString> m_cardOfItem;   // input item -> card id
};
