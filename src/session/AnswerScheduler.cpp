#include "session/AnswerScheduler.h"

#include "session/CardBook.h"

namespace {

// A request of ours that no response has answered after this long is made again; after
// the second time the card is given up with a note.
constexpr double kRequestTimeoutSeconds = 20.0;
constexpr int kMaxRequestAttempts = 2;
// How long a merged question waits for the service's own answer to the follow-up (which
// our request then replaces) before asking anyway.
constexpr double kMergeWaitSeconds = 2.0;
// How long a question the service should answer by itself may go without its answer
// starting before we ask for it.
constexpr double kServiceAnswerGraceSeconds = 5.0;

} // namespace

AnswerScheduler::AnswerScheduler(Clock &clock, const CardBook &cards, QObject *parent)
    : QObject(parent)
    , m_clock(clock)
    , m_cards(cards)
{
}

bool AnswerScheduler::isAwaited(const QString &cardID, bool questionInProgress) const
{
    return questionInProgress || m_queue.contains(cardID) || m_requestedFor == cardID || m_expectsService.contains(cardID)
        || m_noService.contains(cardID) || m_mergeAwaiting == cardID;
}

void AnswerScheduler::turnOpened(const QString &cardID)
{
    // With turn detection the service answers a turn by itself, unless a response is running.
    (isBusy() ? m_noService : m_expectsService).insert(cardID);
}

void AnswerScheduler::questionComplete(const QString &cardID)
{
    if (m_requestedFor == cardID) {
        return;
    }
    // The service will not answer a turn that ended while another answer ran.
    const bool serviceWillAnswer = m_expectsService.contains(cardID)
        || (!m_noService.contains(cardID) && m_active.isEmpty() && !m_requestedFor);
    if (!serviceWillAnswer) {
        queue(cardID, false);
    } else if (m_expectsService.contains(cardID)) {
        // Should the service have been busy after all, it never answers: ask ourselves.
        m_serviceChecks[cardID] = m_clock.schedule(kServiceAnswerGraceSeconds, false, [this, cardID] {
            // Erasing the timer ends this closure: what it needs is copied out first.
            AnswerScheduler *self = this;
            const QString id = cardID;
            self->m_serviceChecks.erase(id);
            const int card = self->m_cards.indexOf(id);
            if (card >= 0 && !self->m_cards.at(card).isComplete && !self->m_cards.at(card).responseID
                && self->m_expectsService.remove(id)) {
                if (self->log) {
                    self->log(QStringLiteral("The service did not answer a question by itself; asking for it"));
                }
                self->queue(id, false);
                self->askNextIfIdle();
            }
        });
    }
}

void AnswerScheduler::queue(const QString &cardID, bool first)
{
    m_queue.removeAll(cardID);
    if (first) {
        m_queue.prepend(cardID);
    } else {
        m_queue.append(cardID);
    }
}

void AnswerScheduler::forget(const QString &cardID)
{
    m_queue.removeAll(cardID);
    m_expectsService.remove(cardID);
    m_noService.remove(cardID);
}

void AnswerScheduler::askMerged(const QString &intoID, bool servicePending)
{
    if (servicePending) {
        // The service is about to answer the follow-up alone; that answer is replaced as soon
        // as it starts (or after a short wait if it never does).
        m_mergeAwaiting = intoID;
        m_mergeWait = m_clock.schedule(kMergeWaitSeconds, false, [this] {
            if (const std::optional<QString> id = std::exchange(m_mergeAwaiting, std::nullopt)) {
                queue(*id, true);
            }
            m_mergeWait.reset();
            askNextIfIdle();
        });
    } else if (m_requestedFor == intoID) {
        m_requestStale = true;   // asked for the shorter question; asked again when that starts
    } else {
        queue(intoID, true);
    }
}

void AnswerScheduler::supersede(const QString &responseID)
{
    if (!m_finished.contains(responseID)) {
        m_superseded.insert(responseID);
    }
}

std::optional<QString> AnswerScheduler::responseCreated(const QString &responseID, bool requested)
{
    if (!responseID.isEmpty()) {
        m_announced.insert(responseID);
    }
    if (responseID.isEmpty() || m_finished.contains(responseID) || m_active.contains(responseID)
        || m_cards.indexOfResponse(responseID) >= 0) {
        return std::nullopt;
    }
    m_active.insert(responseID);

    if (requested && m_requestedFor) {
        const QString cardID = *std::exchange(m_requestedFor, std::nullopt);
        m_requestTimer.reset();
        m_requestAttempts = 0;
        const int index = m_cards.indexOf(cardID);
        const bool stale = std::exchange(m_requestStale, false);
        if (index >= 0 && !stale && !m_cards.at(index).isComplete) {
            return cardID;
        }
        // The question grew after we asked: this answer is replaced by one to the whole of it.
        m_superseded.insert(responseID);
        if (index >= 0 && !m_cards.at(index).isComplete) {
            queue(cardID, true);
        }
        askNextIfIdle();
        return std::nullopt;
    }
    if (m_mergeAwaiting) {
        // The service's own answer to a follow-up that is now part of the previous question.
        m_superseded.insert(responseID);
        const QString cardID = *std::exchange(m_mergeAwaiting, std::nullopt);
        m_mergeWait.reset();
        queue(cardID, true);
        askNextIfIdle();
        return std::nullopt;
    }
    // The service answers a turn by itself: the newest card still waiting for an answer.
    for (int i = m_cards.size() - 1; i >= 0; --i) {
        const QAPair &card = m_cards.at(i);
        if (!card.isComplete && !card.responseID && m_requestedFor != card.id && !m_pictures.contains(card.id)) {
            return card.id;
        }
    }
    return QString();   // the answer has overtaken its question
}

void AnswerScheduler::attached(const QString &cardID)
{
    forget(cardID);
}

bool AnswerScheduler::retryWhenDone(const QString &cardID, const QString &responseID)
{
    if (m_retried.contains(cardID)) {
        return false;
    }
    m_retried.insert(cardID);
    m_retryAfterDone.insert(responseID);
    return true;
}

AnswerScheduler::Done AnswerScheduler::responseDone(const QString &responseID)
{
    m_active.remove(responseID);
    const bool seenBefore = m_finished.contains(responseID);
    m_finished.insert(responseID);
    if (m_superseded.remove(responseID)) {
        askNextIfIdle();   // a replaced answer has ended: the way is clear for the next request
        return Done::nothing;
    }
    if (seenBefore) {
        return Done::nothing;
    }
    if (!m_announced.contains(responseID)) {
        return Done::unknown;   // never announced on this socket: it ends nothing
    }
    if (m_cards.indexOfResponse(responseID) >= 0 && m_retryAfterDone.remove(responseID)) {
        return Done::retry;
    }
    return Done::finished;
}

void AnswerScheduler::askNextIfIdle()
{
    if (m_requestedFor || m_mergeAwaiting) {
        return;
    }
    for (const QString &responseID : std::as_const(m_active)) {
        if (!m_superseded.contains(responseID)) {
            return;   // asked when this answer has finished; asking now would cancel it
        }
    }
    while (!m_queue.isEmpty()) {
        const QString cardID = m_queue.takeFirst();
        const int index = m_cards.indexOf(cardID);
        if (index < 0 || m_cards.at(index).isComplete || m_cards.at(index).responseID || m_cards.at(index).question.isEmpty()
            || m_cards.at(index).questionInProgress) {
            continue;
        }
        request(cardID);
        return;
    }
}

void AnswerScheduler::request(const QString &cardID)
{
    m_requestedFor = cardID;
    m_requestStale = false;
    ++m_requestAttempts;
    if (!ask(cardID)) {
        // Refused on the spot: nothing is outstanding.
        m_pictures.remove(cardID);
        m_requestedFor.reset();
        m_requestAttempts = 0;
        askNextIfIdle();
        return;
    }
    m_requestTimer = m_clock.schedule(kRequestTimeoutSeconds, false, [this, cardID] {
        m_requestTimer.reset();
        if (m_requestedFor != cardID) {
            return;
        }
        m_requestedFor.reset();
        const int card = m_cards.indexOf(cardID);
        if (card >= 0 && m_requestAttempts >= kMaxRequestAttempts) {
            m_requestAttempts = 0;
            giveUp(cardID);
        } else if (card >= 0) {
            if (log) {
                log(QStringLiteral("No answer to the request for a card; asking again"));
            }
            queue(cardID, true);
        }
        askNextIfIdle();
    });
}

void AnswerScheduler::clearInFlight()
{
    m_requestedFor.reset();
    m_requestStale = false;
    m_requestTimer.reset();
    m_mergeAwaiting.reset();
    m_mergeWait.reset();
    m_serviceChecks.clear();
    m_expectsService.clear();
    m_noService.clear();
    m_active.clear();
    m_superseded.clear();
    m_retryAfterDone.clear();
}

void AnswerScheduler::closeAll()
{
    m_queue.clear();
    m_pictures.clear();
    clearInFlight();
}

void AnswerScheduler::reconnected(const QList<QString> &queue)
{
    m_announced.clear();
    clearInFlight();
    m_requestAttempts = 0;
    m_queue = queue;
}
