#include "session/CardBook.h"

#include "session/TextRules.h"

#include <algorithm>
#include <array>

namespace {

// Openers that mark a transcript as continuing the previous question.
const std::array<QLatin1StringView, 26> kFollowUpOpeners = {
    QLatin1StringView("and "),          QLatin1StringView("also "),        QLatin1StringView("plus "),
    QLatin1StringView("or "),           QLatin1StringView("but "),         QLatin1StringView("so "),
    QLatin1StringView("as in "),        QLatin1StringView("i mean "),      QLatin1StringView("sorry "),
    QLatin1StringView("specifically "), QLatin1StringView("in particular "), QLatin1StringView("for example "),
    QLatin1StringView("for instance "), QLatin1StringView("especially "),  QLatin1StringView("particularly "),
    QLatin1StringView("including "),    QLatin1StringView("such as "),     QLatin1StringView("like "),
    QLatin1StringView("maybe "),        QLatin1StringView("just "),        QLatin1StringView("actually "),
    QLatin1StringView("what i mean "),  QLatin1StringView("to be clear "), QLatin1StringView("that is "),
    QLatin1StringView("ie "),           QLatin1StringView("eg "),
};

} // namespace

bool isFollowUp(const QAPair &previous, const QString &text, double secondsSinceQuestion, double window)
{
    if (!(window > 0) || previous.question.isEmpty() || !previous.screenThumbnail.isEmpty()) {
        return false;   // a screen question is never extended by speech
    }
    if (secondsSinceQuestion > window) {
        return false;
    }
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        return false;
    }
    const QString lower = trimmed.toLower();
    for (const QLatin1StringView opener : kFollowUpOpeners) {
        if (lower.startsWith(opener)) {
            return true;
        }
    }
    if (trimmed.at(0).isLower()) {
        return true;
    }
    const QString question = TextRules::trimBlanks(previous.question);
    if (question.isEmpty()) {
        return false;
    }
    const QChar last = question.back();
    return last != QLatin1Char('.') && last != QLatin1Char('?') && last != QLatin1Char('!');
}

CardBook::CardBook(QObject *parent)
    : QAbstractListModel(parent)
{
}

int CardBook::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_cards.size());
}

QVariant CardBook::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_cards.size()) {
        return {};
    }
    const QAPair &card = m_cards.at(index.row());
    if (role == CardRole) {
        return QVariant::fromValue(card);
    }
    if (role == Qt::DisplayRole) {
        return card.displayQuestion();
    }
    return {};
}

void CardBook::changed(int index)
{
    const QModelIndex row = this->index(index);
    emit dataChanged(row, row);
}

void CardBook::append(const QAPair &card)
{
    const int row = int(m_cards.size());
    beginInsertRows({}, row, row);
    m_cards.append(card);
    endInsertRows();
}

void CardBook::removeAt(int index)
{
    beginRemoveRows({}, index, index);
    m_cards.removeAt(index);
    endRemoveRows();
}

bool CardBook::removeIf(const std::function<bool(const QAPair &)> &doomed)
{
    if (std::none_of(m_cards.cbegin(), m_cards.cend(), doomed)) {
        return false;
    }
    beginResetModel();
    m_cards.removeIf(doomed);
    endResetModel();
    return true;
}

bool CardBook::removeEmptyComplete()
{
    return removeIf([](const QAPair &card) {
        // A turn card still waiting for its transcript stays; a card an answer opened goes.
        return card.isComplete && (!card.questionInProgress || card.itemID.isEmpty()) && !card.questionFailed
            && card.question.isEmpty() && card.answer.isEmpty() && card.myAnswer.isEmpty();
    });
}

int CardBook::indexOf(const QString &cardID) const
{
    for (int i = int(m_cards.size()) - 1; i >= 0; --i) {
        if (m_cards.at(i).id == cardID) {
            return i;
        }
    }
    return -1;
}

int CardBook::indexOfResponse(const QString &responseID) const
{
    for (int i = int(m_cards.size()) - 1; i >= 0; --i) {
        if (m_cards.at(i).responseID == responseID) {
            return i;
        }
    }
    return -1;
}

int CardBook::previousQuestionCard(int index) const
{
    for (int i = index - 1; i >= 0; --i) {
        const QAPair &card = m_cards.at(i);
        if (card.questionFailed || card.questionInProgress || card.questionMissing) {
            return -1;   // an unknown question sits in between
        }
        if (!card.question.isEmpty()) {
            return i;
        }
    }
    return -1;
}

int CardBook::cardForItem(const QString &itemID) const
{
    const auto found = m_cardOfItem.constFind(itemID);
    return itemID.isEmpty() || found == m_cardOfItem.constEnd() ? -1 : indexOf(*found);
}

void CardBook::assignItem(const QString &itemID, const QString &cardID)
{
    m_cardOfItem.insert(itemID, cardID);
}

bool CardBook::hasItemFor(const QString &cardID) const
{
    return m_cardOfItem.values().contains(cardID);
}

void CardBook::moveItems(const QString &from, const QString &to)
{
    for (auto it = m_cardOfItem.begin(); it != m_cardOfItem.end(); ++it) {
        if (it.value() == from) {
            it.value() = to;
        }
    }
}

bool CardBook::isEmptyPlaceholder(const QAPair &card)
{
    return card.isComplete && card.question.isEmpty() && card.answer.isEmpty() && card.myAnswer.isEmpty()
        && !card.questionFailed && !card.questionInProgress && !card.responseID && card.itemID.isEmpty();
}

History CardBook::history() const
{
    History history;
    for (const QAPair &card : m_cards) {
        const QString question = card.questionInProgress ? QString() : card.question;
        if (card.isComplete && (!question.isEmpty() || !card.answer.isEmpty())) {
            history.append(HistoryEntry{question, card.answer});
        }
    }
    return history;
}

QString CardBook::exportText() const
{
    QStringList blocks;
    for (const QAPair &card : m_cards) {
        blocks << tr("[%1] Q: %2\nA: %3").arg(card.timestamp, card.recordedQuestion(), card.answer);
    }
    return blocks.join(QStringLiteral("\n\n"));
}
