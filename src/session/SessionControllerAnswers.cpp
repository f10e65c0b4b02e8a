// Question and answer cards, the answer side: responses created by the service or asked
// for by us, streamed answer text, responses that end badly, completion, and the cards of a
// new socket. Which card a response answers and what is asked again: AnswerScheduler.

#include "session/SessionController.h"

#include "realtime/RealtimeService.h"
#include "session/SessionLogging.h"
#include "session/TextRules.h"


void SessionController::responseCreated(const QString &responseID, bool requested)
{
    const std::optional<QString> cardID = m_scheduler.responseCreated(responseID, requested);
    if (!cardID) {
        return;
    }
    if (!cardID->isEmpty()) {
        attachResponse(m_cards.indexOf(*cardID), responseID);
        return;
    }
    // The answer has overtaken its question; the transcript fills it in later.
    QAPair pair = QAPair::make(QString(), responseID, m_parts.clock.now(), m_parts.clock.wallNow());
    pair.questionInProgress = true;
    m_cards.append(pair);
}

void SessionController::attachResponse(int index, const QString &responseID)
{
    QAPair &pair = m_cards.card(index);
    pair.responseID = responseID;
    pair.isComplete = false;
    pair.answer.clear();   // a partial answer from a connection that was cut
    pair.answerNote.clear();
    m_scheduler.attached(pair.id);
    m_turns.firstTokenSeen.remove(pair.id);
    m_cards.changed(index);
}

void SessionController::ingestDelta(const QString &responseID, const QString &delta)
{
    if (m_scheduler.isSuperseded(responseID)) {
        return;
    }
    if (m_scheduler.isFinished(responseID)) {
        if (!delta.isEmpty()) {
            dropDelta(responseID, delta.size(), QStringLiteral("response finished"));
        }
        return;
    }
    if (delta.isEmpty()) {
        return;
    }
    if (!m_scheduler.isAnnounced(responseID)) {
        // The service announces every response first; text for any other never gets a card.
        dropDelta(responseID, delta.size(), QStringLiteral("unknown_response"));
        return;
    }
    const int index = m_cards.indexOfResponse(responseID);
    if (index < 0) {
        return;
    }
    QAPair &pair = m_cards.card(index);
    if (pair.isComplete) {
        dropDelta(responseID, delta.size(), QStringLiteral("card complete"));
        return;
    }
    const qsizetype room = maxAnswerLength - pair.answer.size();
    if (room <= 0) {
        noteTruncated(index);
        dropDelta(responseID, delta.size(), QStringLiteral("answer too long"));
        return;
    }
    QStringView piece(delta);
    if (delta.size() > room) {
        qsizetype cut = room;
        if (delta.at(cut - 1).isHighSurrogate()) {
            --cut;   // never split a character
        }
        piece = piece.left(cut);
    }

    const QString id = pair.id;
    if (!m_turns.firstTokenSeen.contains(id)) {
        m_turns.firstTokenSeen.insert(id);
        QVariantMap fields{{QStringLiteral("pair"), id},
                           {QStringLiteral("response"), responseID},
                           {QStringLiteral("you_were_speaking"), m_answerClock.isSpeaking()}};
        const auto heard = m_turns.questionAt.constFind(id);
        if (heard != m_turns.questionAt.constEnd()) {
            fields.insert(QStringLiteral("latency_after_question_s"),
                          CostModel::rounded(Clock::secondsBetween(*heard, m_parts.clock.now()), 3));
        }
        appendEvent(QStringLiteral("answer_started"), fields);
    }
    m_cards.card(index).answer += piece;
    m_cards.changed(index);
    if (piece.size() < delta.size()) {
        noteTruncated(index);
        dropDelta(responseID, delta.size() - piece.size(), QStringLiteral("answer too long"));
    }
}

// Text was dropped at the length cap: the card's note and one event.
void SessionController::noteTruncated(int index)
{
    QAPair &pair = m_cards.card(index);
    if (pair.answerNote == QAPair::truncatedNote) {
        return;   // noted with the first text dropped
    }
    pair.answerNote = QAPair::truncatedNote;
    m_cards.changed(index);
    appendEvent(QStringLiteral("answer_truncated"), {{QStringLiteral("pair"), pair.id},
                                                     {QStringLiteral("response"), pair.responseID.value_or(QString())},
                                                     {QStringLiteral("chars"), qint64(pair.answer.size())}});
}

void SessionController::dropDelta(const QString &responseID, qsizetype chars, const QString &reason)
{
    ++m_turns.drops.deltas;
    m_turns.drops.chars += chars;
    if (m_turns.drops.responses.contains(responseID)) {
        return;   // one line per response; the totals go into the session's last lines
    }
    m_turns.drops.responses.insert(responseID);
    qCWarning(lcSession, "[Ketterbloom] dropped answer text for response %s: %s", qPrintable(responseID), qPrintable(reason));
    appendEvent(QStringLiteral("delta_dropped"), {{QStringLiteral("response"), responseID},
                                                  {QStringLiteral("reason"), reason},
                                                  {QStringLiteral("chars"), qint64(chars)}});
}

// `transient`: the service failed for a passing reason; the question is asked once more.
void SessionController::responseEnded(const QString &responseID, const QString &status, const QString &reason,
                                      bool transient)
{
    if (m_scheduler.isSuperseded(responseID)) {
        return;
    }
    const int index = m_cards.indexOfResponse(responseID);
    if (index < 0) {
        return;
    }
    QAPair &pair = m_cards.card(index);
    const bool failed = status == QLatin1String("failed");
    pair.answerNote = failed ? QAPair::couldNotAnswerNote(reason) : QAPair::cutShortNote;
    m_cards.changed(index);
    appendEvent(QStringLiteral("answer_failed"), {{QStringLiteral("pair"), pair.id},
                                                  {QStringLiteral("response"), responseID},
                                                  {QStringLiteral("status"), status},
                                                  {QStringLiteral("reason"), reason}});
    // A passing fault of the service: the question is asked once more when this response is
    // done (and any other answer has finished). The note shows until the new answer starts.
    const QAPair &ended = m_cards.at(index);
    if (failed && transient && !ended.isComplete && !ended.question.isEmpty() && !ended.questionInProgress
        && m_scheduler.retryWhenDone(ended.id, responseID)) {
        appendEvent(QStringLiteral("answer_retried"), {{QStringLiteral("pair"), ended.id},
                                                       {QStringLiteral("response"), responseID},
                                                       {QStringLiteral("reason"), reason}});
    }
}

void SessionController::completeResponse(const QString &responseID)
{
    switch (m_scheduler.responseDone(responseID)) {
    case AnswerScheduler::Done::nothing:
        return;
    case AnswerScheduler::Done::unknown:
        dropDelta(responseID, 0, QStringLiteral("unknown_response"));
        return;
    case AnswerScheduler::Done::retry: {
        QAPair &pair = m_cards.card(m_cards.indexOfResponse(responseID));
        pair.responseID.reset();
        m_scheduler.queue(pair.id, true);
        m_scheduler.askNextIfIdle();
        return;
    }
    case AnswerScheduler::Done::finished:
        break;
    }
    const int index = m_cards.indexOfResponse(responseID);
    if (index >= 0) {
        m_cards.card(index).isComplete = true;
        m_scheduler.answered(m_cards.at(index).id);
        // On disk before anyone hears of it, so that a crash from here on keeps the card.
        saveTranscript();
        const QAPair &pair = m_cards.at(index);
        appendEvent(QStringLiteral("answer_done"), {{QStringLiteral("pair"), pair.id},
                                                    {QStringLiteral("chars"), qint64(TextRules::characterCount(pair.answer))},
                                                    {QStringLiteral("question"), pair.question},
                                                    {QStringLiteral("answer"), pair.answer}});
        m_cards.changed(index);
        if (m_cards.at(index).questionInProgress) {
            awaitLateQuestion(m_cards.at(index).id);
        }
    }

    if (m_cards.removeEmptyComplete()) {
        saveTranscript();
    }
    pushHistory();
    m_scheduler.askNextIfIdle();
}

// ---- Asking again --------------------------------------------------------------------

bool SessionController::askFor(const QString &pairID)
{
    if (m_scheduler.hasPicture(pairID)) {
        return sendScreenQuestion(pairID);
    }
    m_parts.client.regenerate(m_cards.at(m_cards.indexOf(pairID)).question);
    return true;
}

// The scheduler's hook: finishes a card nothing answered.
void SessionController::giveUpOn(const QString &pairID)
{
    const int card = m_cards.indexOf(pairID);
    m_cards.card(card).isComplete = true;
    m_cards.card(card).answerNote = QAPair::couldNotAnswerNote(QStringLiteral("no response"));
    m_cards.changed(card);
    appendEvent(QStringLiteral("answer_failed"), {{QStringLiteral("pair"), pairID},
                                                  {QStringLiteral("status"), QStringLiteral("no_response")},
                                                  {QStringLiteral("reason"), QStringLiteral("no response")}});
    pushHistory();
    saveTranscript();
}

void SessionController::connectionConfigured()
{
    // A new socket: whatever was in flight on the old one will never finish.
    setListening(false);

    QList<QString> queue;
    for (int i = 0; i < m_cards.size(); ++i) {
        QAPair &pair = m_cards.card(i);
        if (pair.isComplete && !pair.questionInProgress) {
            continue;
        }
        pair.questionInProgress = false;   // its transcript went with the old socket
        if (!pair.isComplete && !pair.question.isEmpty()) {
            pair.responseID.reset();   // the partial answer shows until the new one starts
            queue.append(pair.id);
        } else if (!pair.isComplete) {
            pair.isComplete = true;
            if (!pair.answer.isEmpty()) {
                pair.answerNote = QAPair::cutShortNote;
            }
        }
        m_cards.changed(i);
    }
    m_scheduler.reconnected(queue);
    if (!queue.isEmpty()) {
        appendEvent(QStringLiteral("answers_reasked"), {{QStringLiteral("pairs"), qint64(queue.size())}});
    }
    m_cards.removeEmptyComplete();
    m_scheduler.askNextIfIdle();
}

// ---- Housekeeping --------------------------------------------------------------------

void SessionController::closeOpenCards()
{
    for (int i = 0; i < m_cards.size(); ++i) {
        QAPair &pair = m_cards.card(i);
        if (pair.isComplete && !pair.questionInProgress) {
            continue;
        }
        if (!pair.isComplete && !pair.answer.isEmpty() && pair.answerNote.isEmpty()) {
            pair.answerNote = QAPair::cutShortNote;
        }
        pair.isComplete = true;
        pair.questionMissing = pair.questionMissing
            || (pair.questionInProgress && pair.question.isEmpty() && !pair.answer.isEmpty());
        pair.questionInProgress = false;
        m_cards.changed(i);
    }
    m_scheduler.closeAll();
    m_turns.questionWaits.clear();
    m_cards.removeEmptyComplete();
}

void SessionController::pushHistory()
{
    m_parts.client.updateHistory(m_cards.history());
}
