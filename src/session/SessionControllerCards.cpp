// Question and answer cards, the question side: the service's turns (speech start and stop,
// transcript deltas, completed and failed transcripts), the follow-up merge, history.

#include "session/SessionController.h"

#include "realtime/RealtimeService.h"
#include "session/TextRules.h"
#include "settings/AppSettings.h"

// ---- The service's turns -------------------------------------------------------------

void SessionController::speechStarted(const QString &itemID)
{
    m_turns.speechStartedAt.insert(itemID, m_parts.clock.now());
    appendEvent(QStringLiteral("speech_started"), {{QStringLiteral("item"), itemID}});   // the review's timeline
    setListening(true);
    giveUpWaitingQuestions(itemID);
}

void SessionController::speechStopped(const QString &itemID)
{
    appendEvent(QStringLiteral("speech_stopped"), {{QStringLiteral("item"), itemID}});
    setListening(false);
    const auto started = m_turns.speechStartedAt.constFind(itemID);
    if (started != m_turns.speechStartedAt.constEnd()) {
        m_turns.heardSeconds.insert(itemID, Clock::secondsBetween(*started, m_parts.clock.now()));
    }
    openTurnCard(itemID);
}

int SessionController::openTurnCard(const QString &itemID)
{
    int index = m_cards.cardForItem(itemID);
    if (index >= 0) {
        return index;
    }
    if (!m_cards.isEmpty()) {
        // The service created this turn's response before it reported the end of speech.
        QAPair &last = m_cards.card(m_cards.size() - 1);
        if (last.itemID.isEmpty() && last.questionInProgress && last.question.isEmpty() && last.responseID
            && !last.questionFailed && !m_cards.hasItemFor(last.id)) {
            last.itemID = itemID;
            m_cards.assignItem(itemID, last.id);
            return int(m_cards.size()) - 1;
        }
    }
    const bool reuse = !m_cards.isEmpty() && CardBook::isEmptyPlaceholder(m_cards.last());
    if (!reuse) {
        m_cards.append(QAPair::make(QString(), std::nullopt, m_parts.clock.now(), m_parts.clock.wallNow()));
    }
    index = int(m_cards.size()) - 1;
    QAPair &pair = m_cards.card(index);
    pair.itemID = itemID;
    pair.questionInProgress = true;
    pair.isComplete = false;
    pair.lastQuestionAt = m_parts.clock.now();
    m_cards.assignItem(itemID, pair.id);
    m_scheduler.turnOpened(pair.id);
    if (reuse) {
        m_cards.changed(index);
    }
    return index;
}

void SessionController::ingestTranscriptDelta(const QString &itemID, const QString &delta)
{
    const int index = openTurnCard(itemID);
    QAPair &pair = m_cards.card(index);
    if (!pair.questionInProgress || delta.isEmpty()) {
        return;
    }
    pair.question += delta;
    m_cards.changed(index);
}

void SessionController::ingestTranscript(const QString &itemID, const QString &text)
{
    const bool wasSpeaking = m_answerClock.isSpeaking();   // read before the other side ends the user's answer
    interviewerTookOver();

    int index = m_cards.cardForItem(itemID);
    if (index >= 0 && !m_cards.at(index).questionInProgress && !m_cards.at(index).questionMissing) {
        index = -1;   // that card has its question already
    }
    if (index < 0) {
        // Without speech events: the card an answer opened before its question arrived.
        for (int i = int(m_cards.size()) - 1; i >= 0 && index < 0; --i) {
            if (m_cards.at(i).questionInProgress && m_cards.at(i).itemID.isEmpty()) {
                index = i;
            }
        }
        if (index < 0 && !m_cards.isEmpty() && CardBook::isEmptyPlaceholder(m_cards.last())) {
            index = int(m_cards.size()) - 1;
        }
    }
    const bool nothingSaid = text.trimmed().isEmpty();
    if (index < 0) {
        if (nothingSaid) {
            return;
        }
        m_cards.append(QAPair::make(QString(), std::nullopt, m_parts.clock.now(), m_parts.clock.wallNow()));
        index = int(m_cards.size()) - 1;
    }
    QAPair &pair = m_cards.card(index);
    if (!itemID.isEmpty()) {
        if (pair.itemID.isEmpty()) {
            pair.itemID = itemID;
        }
        m_cards.assignItem(itemID, pair.id);
    }
    if (nothingSaid) {
        questionNotHeard(index);
        return;
    }

    if (CardBook::isEmptyPlaceholder(pair)) {
        pair.isComplete = false;
    }
    pair.question = text;
    pair.questionInProgress = false;
    pair.questionFailed = false;
    pair.questionMissing = false;
    m_turns.questionWaits.erase(pair.id);
    pair.lastQuestionAt = m_parts.clock.now();
    m_cards.changed(index);

    const int previous = m_cards.previousQuestionCard(index);
    if (previous >= 0
        && isFollowUp(m_cards.at(previous), text, Clock::secondsBetween(m_cards.at(previous).lastQuestionAt, m_parts.clock.now()),
                      m_parts.settings.followUpWindow())) {
        mergeFollowUp(index, previous, text);
        return;
    }

    const QString id = pair.id;
    m_turns.questionAt.insert(id, m_parts.clock.now());
    appendEvent(QStringLiteral("question"), {{QStringLiteral("text"), text},
                                             {QStringLiteral("pair"), id},
                                             {QStringLiteral("you_were_speaking"), wasSpeaking}});
    if (!pair.isComplete && !pair.responseID) {
        m_scheduler.questionComplete(id);
    }
    pushHistory();
    if (m_cards.at(index).isComplete) {
        saveTranscript();
    }
    m_scheduler.askNextIfIdle();
}

// The turn's transcript came back empty: the card goes unless something is on it.
void SessionController::questionNotHeard(int index)
{
    // Noise: the card goes unless something is on it.
    QAPair &pair = m_cards.card(index);
    pair.questionInProgress = false;
    pair.question.clear();
    if (pair.answer.isEmpty() && pair.myAnswer.isEmpty()) {
        if (pair.responseID) {
            m_scheduler.supersede(*pair.responseID);
        }
        m_scheduler.forget(pair.id);
        m_cards.removeAt(index);
        m_scheduler.askNextIfIdle();
    } else {
        pair.isComplete = pair.isComplete || (!pair.responseID && !m_scheduler.isAwaited(pair.id, pair.questionInProgress));
        m_cards.changed(index);
    }
}

void SessionController::transcriptFailed(const QString &itemID, const QString &message)
{
    interviewerTookOver();
    const int index = openTurnCard(itemID);
    QAPair &pair = m_cards.card(index);
    pair.questionInProgress = false;
    pair.questionMissing = false;
    pair.questionFailed = true;
    pair.question.clear();
    const QString id = pair.id;
    m_scheduler.unqueue(id);   // nothing to ask with; the service may still answer the audio
    if (!pair.isComplete && !pair.responseID && !m_scheduler.expectsServiceAnswer(id)) {
        pair.isComplete = true;
        m_scheduler.forget(id);
    }
    m_cards.changed(index);
    appendEvent(QStringLiteral("question_failed"), {{QStringLiteral("pair"), id}, {QStringLiteral("message"), message}});
    if (m_cards.at(index).isComplete) {
        saveTranscript();
    }
}

// ---- Follow-ups ----------------------------------------------------------------------

void SessionController::mergeFollowUp(int followUp, int into, const QString &text)
{
    const QAPair follow = m_cards.at(followUp);
    const QString intoID = m_cards.at(into).id;
    // The follow-up's own answer is replaced by the answer to the whole question.
    if (follow.responseID) {
        m_scheduler.supersede(*follow.responseID);
    }
    const bool serviceAnswerPending = !follow.responseID && m_scheduler.expectsServiceAnswer(follow.id);
    m_scheduler.forget(follow.id);
    m_cards.moveItems(follow.id, intoID);
    // Words the user said on the follow-up's card stay with the question.
    if (!follow.myAnswer.isEmpty()) {
        QString &mine = m_cards.card(into).myAnswer;
        mine = mine.isEmpty() ? follow.myAnswer : mine + QLatin1Char(' ') + follow.myAnswer;
        m_turns.committedAnswers.insert(intoID, mine);
    }
    if (m_turns.speakingPairID == follow.id) {
        m_turns.speakingPairID = intoID;
    }
    m_cards.removeAt(followUp);
    extendQuestion(m_cards.indexOf(intoID), text);

    m_scheduler.askMerged(intoID, serviceAnswerPending);
    pushHistory();
    m_scheduler.askNextIfIdle();
}

void SessionController::extendQuestion(int index, const QString &text)
{
    QAPair &pair = m_cards.card(index);
    QString merged = pair.question + QLatin1Char(' ') + text;
    merged.replace(QStringLiteral("  "), QStringLiteral(" "));   // one pass: three blanks become two
    merged = TextRules::trimBlanks(merged);

    if (pair.responseID) {
        m_scheduler.supersede(*pair.responseID);
    }
    pair.question = merged;
    pair.lastQuestionAt = m_parts.clock.now();
    pair.wasExtended = true;
    pair.answer.clear();
    pair.answerNote.clear();
    pair.isComplete = false;
    pair.responseID.reset();
    const QString id = pair.id;
    m_cards.changed(index);

    m_turns.questionAt.insert(id, m_parts.clock.now());
    m_turns.firstTokenSeen.remove(id);
    appendEvent(QStringLiteral("question_extended"), {{QStringLiteral("merged"), merged},
                                                      {QStringLiteral("added"), text},
                                                      {QStringLiteral("pair"), id}});
}
