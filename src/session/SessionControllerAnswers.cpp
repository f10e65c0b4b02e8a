// Question and answer cards, the answer side: responses created by the service or asked
// for by us, streamed answer text, responses that end badly, completion, and asking again
// for every question left without an answer (a turn that ended while another answer ran,
// a follow-up merged into its question, a card cut off by a reconnect).

#include "session/SessionController.h"

#include "session/RealtimeLink.h"
#include "session/TextRules.h"

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcSession)

namespace {

// A request of ours that no response has answered after this long is made again; after
// the second time the card is given up with a note.
constexpr double kRequestTimeoutSeconds = 20.0;
constexpr int kMaxRequestAttempts = 2;

} // namespace

bool SessionController::isAwaited(const QAPair &pair) const
{
    return pair.questionInProgress || m_answerQueue.contains(pair.id) || m_requestedFor == pair.id
        || m_expectsServiceResponse.contains(pair.id) || m_noServiceResponse.contains(pair.id)
        || m_mergeAwaitingServiceResponse == pair.id;
}

void SessionController::responseCreated(const QString &responseID, bool requested)
{
    if (!responseID.isEmpty()) {
        m_announcedResponses.insert(responseID);
    }
    if (responseID.isEmpty() || m_finishedResponses.contains(responseID) || m_activeResponses.contains(responseID)
        || m_cards.indexOfResponse(responseID) >= 0) {
        return;
    }
    m_activeResponses.insert(responseID);

    if (requested && m_requestedFor) {
        const QString pairID = *std::exchange(m_requestedFor, std::nullopt);
        m_requestTimer.reset();
        m_requestAttempts = 0;
        const int index = m_cards.indexOf(pairID);
        const bool stale = std::exchange(m_requestStale, false);
        if (index >= 0 && !stale && !m_cards.at(index).isComplete) {
            attachResponse(index, responseID);
            return;
        }
        // The question grew after we asked: this answer is replaced by one to the whole of it.
        m_supersededResponses.insert(responseID);
        if (index >= 0 && !m_cards.at(index).isComplete) {
            queueAnswer(pairID, true);
        }
        askNextIfIdle();
        return;
    }
    if (m_mergeAwaitingServiceResponse) {
        // The service's own answer to a follow-up that is now part of the previous question.
        m_supersededResponses.insert(responseID);
        const QString pairID = *std::exchange(m_mergeAwaitingServiceResponse, std::nullopt);
        m_mergeWait.reset();
        queueAnswer(pairID, true);
        askNextIfIdle();
        return;
    }
    // The service answers a turn by itself: the newest card still waiting for an answer.
    for (int i = int(m_cards.size()) - 1; i >= 0; --i) {
        const QAPair &pair = m_cards.at(i);
        if (!pair.isComplete && !pair.responseID && m_requestedFor != pair.id && !m_screenImages.contains(pair.id)) {
            attachResponse(i, responseID);
            return;
        }
    }
    // The answer has overtaken its question; the transcript fills it in later.
    QAPair pair = QAPair::make(QString(), responseID, m_clock.now(), m_clock.wallNow());
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
    m_answerQueue.removeAll(pair.id);
    m_expectsServiceResponse.remove(pair.id);
    m_noServiceResponse.remove(pair.id);
    m_firstTokenSeen.remove(pair.id);
    m_cards.changed(index);
}

void SessionController::ingestDelta(const QString &responseID, const QString &delta)
{
    if (m_supersededResponses.contains(responseID)) {
        return;
    }
    if (m_finishedResponses.contains(responseID)) {
        if (!delta.isEmpty()) {
            dropDelta(responseID, delta.size(), QStringLiteral("response finished"));
        }
        return;
    }
    if (delta.isEmpty()) {
        return;
    }
    if (!m_announcedResponses.contains(responseID)) {
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
    if (!m_firstTokenSeen.contains(id)) {
        m_firstTokenSeen.insert(id);
        QVariantMap fields{{QStringLiteral("pair"), id},
                           {QStringLiteral("response"), responseID},
                           {QStringLiteral("you_were_speaking"), m_answerClock.isSpeaking()}};
        const auto heard = m_questionAt.constFind(id);
        if (heard != m_questionAt.constEnd()) {
            fields.insert(QStringLiteral("latency_after_question_s"),
                          CostModel::rounded(Clock::secondsBetween(*heard, m_clock.now()), 3));
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
    ++m_droppedDeltas;
    m_droppedChars += chars;
    if (m_droppedResponses.contains(responseID)) {
        return;   // one line per response; the totals go into the session's last lines
    }
    m_droppedResponses.insert(responseID);
    qCWarning(lcSession, "[Ketterbloom] dropped answer text for response %s: %s", qPrintable(responseID), qPrintable(reason));
    appendEvent(QStringLiteral("delta_dropped"), {{QStringLiteral("response"), responseID},
                                                  {QStringLiteral("reason"), reason},
                                                  {QStringLiteral("chars"), qint64(chars)}});
}

void SessionController::responseEnded(const QString &responseID, const QString &status, const QString &reason,
                                      bool transient)
{
    if (m_supersededResponses.contains(responseID)) {
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
    if (failed && transient && !ended.isComplete && !m_retriedCards.contains(ended.id) && !ended.question.isEmpty()
        && !ended.questionInProgress) {
        m_retriedCards.insert(ended.id);
        m_retryAfterDone.insert(responseID);
        appendEvent(QStringLiteral("answer_retried"), {{QStringLiteral("pair"), ended.id},
                                                       {QStringLiteral("response"), responseID},
                                                       {QStringLiteral("reason"), reason}});
    }
}

void SessionController::completeResponse(const QString &responseID)
{
    m_activeResponses.remove(responseID);
    const bool seenBefore = m_finishedResponses.contains(responseID);
    m_finishedResponses.insert(responseID);
    if (m_supersededResponses.remove(responseID)) {
        askNextIfIdle();   // a replaced answer has ended: the way is clear for the next request
        return;
    }
    if (seenBefore) {
        return;
    }
    if (!m_announcedResponses.contains(responseID)) {
        // Never announced on this socket: it ends nothing.
        dropDelta(responseID, 0, QStringLiteral("unknown_response"));
        return;
    }

    const int index = m_cards.indexOfResponse(responseID);
    if (index >= 0 && m_retryAfterDone.remove(responseID)) {
        QAPair &pair = m_cards.card(index);
        pair.responseID.reset();
        queueAnswer(pair.id, true);
        askNextIfIdle();
        return;
    }
    if (index >= 0) {
        m_cards.card(index).isComplete = true;
        m_screenImages.remove(m_cards.at(index).id);
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
    askNextIfIdle();
}

// ---- Asking again --------------------------------------------------------------------

void SessionController::queueAnswer(const QString &pairID, bool first)
{
    m_answerQueue.removeAll(pairID);
    if (first) {
        m_answerQueue.prepend(pairID);
    } else {
        m_answerQueue.append(pairID);
    }
}

void SessionController::askNextIfIdle()
{
    if (m_requestedFor || m_mergeAwaitingServiceResponse) {
        return;
    }
    for (const QString &responseID : std::as_const(m_activeResponses)) {
        if (!m_supersededResponses.contains(responseID)) {
            return;   // asked when this answer has finished; asking now would cancel it
        }
    }
    while (!m_answerQueue.isEmpty()) {
        const QString pairID = m_answerQueue.takeFirst();
        const int index = m_cards.indexOf(pairID);
        if (index < 0 || m_cards.at(index).isComplete || m_cards.at(index).responseID || m_cards.at(index).question.isEmpty()
            || m_cards.at(index).questionInProgress) {
            continue;
        }
        requestAnswer(pairID);
        return;
    }
}

void SessionController::requestAnswer(const QString &pairID)
{
    const int index = m_cards.indexOf(pairID);
    m_requestedFor = pairID;
    m_requestStale = false;
    ++m_requestAttempts;
    if (m_screenImages.contains(pairID)) {
        sendScreenQuestion(pairID);
        if (!m_screenImages.contains(pairID)) {
            // Refused on the spot: nothing is outstanding.
            m_requestedFor.reset();
            m_requestAttempts = 0;
            askNextIfIdle();
            return;
        }
    } else {
        m_client.regenerate(m_cards.at(index).question);
    }
    m_requestTimer = m_clock.schedule(kRequestTimeoutSeconds, false, [this, pairID] {
        m_requestTimer.reset();
        if (m_requestedFor != pairID) {
            return;
        }
        m_requestedFor.reset();
        const int card = m_cards.indexOf(pairID);
        if (card >= 0 && m_requestAttempts >= kMaxRequestAttempts) {
            m_requestAttempts = 0;
            m_cards.card(card).isComplete = true;
            m_cards.card(card).answerNote = QAPair::couldNotAnswerNote(QStringLiteral("no response"));
            m_cards.changed(card);
            appendEvent(QStringLiteral("answer_failed"), {{QStringLiteral("pair"), pairID},
                                                          {QStringLiteral("status"), QStringLiteral("no_response")},
                                                          {QStringLiteral("reason"), QStringLiteral("no response")}});
            pushHistory();
            saveTranscript();
        } else if (card >= 0) {
            log(QStringLiteral("No answer to the request for a card; asking again"));
            queueAnswer(pairID, true);
        }
        askNextIfIdle();
    });
}

void SessionController::connectionConfigured()
{
    // A new socket: whatever was in flight on the old one will never finish.
    setListening(false);
    m_announcedResponses.clear();
    m_retryAfterDone.clear();
    m_activeResponses.clear();
    m_supersededResponses.clear();
    m_expectsServiceResponse.clear();
    m_noServiceResponse.clear();
    m_requestedFor.reset();
    m_requestStale = false;
    m_requestTimer.reset();
    m_requestAttempts = 0;
    m_mergeAwaitingServiceResponse.reset();
    m_mergeWait.reset();
    m_serviceAnswerChecks.clear();

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
    m_answerQueue = queue;
    if (!queue.isEmpty()) {
        appendEvent(QStringLiteral("answers_reasked"), {{QStringLiteral("pairs"), qint64(queue.size())}});
    }
    m_cards.removeEmptyComplete();
    askNextIfIdle();
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
    m_answerQueue.clear();
    m_screenImages.clear();
    m_requestedFor.reset();
    m_requestStale = false;
    m_requestTimer.reset();
    m_mergeAwaitingServiceResponse.reset();
    m_mergeWait.reset();
    m_serviceAnswerChecks.clear();
    m_expectsServiceResponse.clear();
    m_noServiceResponse.clear();
    m_activeResponses.clear();
    m_supersededResponses.clear();
    m_retryAfterDone.clear();
    m_questionWaits.clear();
    m_cards.removeEmptyComplete();
}

void SessionController::pushHistory()
{
    m_client.updateHistory(m_cards.history());
}
