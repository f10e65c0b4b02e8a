#pragma once

#include "session/Clock.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>

class CardBook;

// Which response belongs to which card, and which cards must be asked (again), in what
// order and when. The service answers a turn by itself unless another answer was running;
// every other question — a turn that ended while an answer ran, a follow-up merged into its
// question, a card cut off by a reconnect, an answer that failed for a passing reason, a
// screen question — waits in one queue and is asked when no answer is running, one request
// at a time. A request no response answers is made again after 20 s; after the second, the
// card is given up. Reads the cards, never edits them: the coordinator does, through the
// hooks below. Lives on the GUI thread.
class AnswerScheduler : public QObject
{
    Q_OBJECT

public:
    AnswerScheduler(Clock &clock, const CardBook &cards, QObject *parent = nullptr);

    // Sends the request for a card: its question, or its picture (hasPicture). False when the
    // link refused it on the spot (the coordinator has removed the card).
    std::function<bool(const QString &cardID)> ask;
    // Nothing answered the card's requests: it is finished with a note.
    std::function<void(const QString &cardID)> giveUp;
    std::function<void(const QString &message)> log;

    // A new session: no response of the last one is finished any more.
    void newSession() { m_finished.clear(); }
    // Stop: nothing is asked or awaited any more.
    void closeAll();
    // A new socket: what was in flight on the old one will never finish; `queue` (the
    // unfinished cards) is asked again in order.
    void reconnected(const QList<QString> &queue);

    // A response or request is running.
    bool isBusy() const { return !m_active.isEmpty() || m_requestedFor.has_value(); }
    // The card still waits for its question or an answer to be asked for or to start.
    bool isAwaited(const QString &cardID, bool questionInProgress) const;
    // A turn card opened: the service answers it by itself unless it is busy.
    void turnOpened(const QString &cardID);
    // The card's question is complete and unanswered: asked now, later, or left to the
    // service (asked after all should it not answer within 5 s).
    void questionComplete(const QString &cardID);
    void queue(const QString &cardID, bool first);
    void unqueue(const QString &cardID) { m_queue.removeAll(cardID); }
    // The card needs nothing any more (removed, merged, or its question failed).
    void forget(const QString &cardID);
    bool expectsServiceAnswer(const QString &cardID) const { return m_expectsService.contains(cardID); }
    // A follow-up merged into `intoID`: the longer question is asked, after the service's own
    // answer to the follow-up (`servicePending`) has started or 2 s.
    void askMerged(const QString &intoID, bool servicePending);
    // The response's text is replaced (unless it has finished already).
    void supersede(const QString &responseID);

    // Screen questions: the picture, kept until the card is answered.
    void addPicture(const QString &cardID, const QByteArray &jpeg) { m_pictures.insert(cardID, jpeg); }
    bool hasPicture(const QString &cardID) const { return m_pictures.contains(cardID); }
    QByteArray picture(const QString &cardID) const { return m_pictures.value(cardID); }
    void answered(const QString &cardID) { m_pictures.remove(cardID); }

    // A response began. Returns the card it answers, an empty id for a new card (the answer
    // overtook its question), or none (nothing to show: known, or replaced).
    std::optional<QString> responseCreated(const QString &responseID, bool requested);
    // The response now writes the card's answer.
    void attached(const QString &cardID);
    bool isSuperseded(const QString &responseID) const { return m_superseded.contains(responseID); }
    bool isFinished(const QString &responseID) const { return m_finished.contains(responseID); }
    bool isAnnounced(const QString &responseID) const { return m_announced.contains(responseID); }
    // The response failed for a passing reason: true when its card is asked once more after it
    // is done (once per card).
    bool retryWhenDone(const QString &cardID, const QString &responseID);

    enum class Done { nothing, unknown, retry, finished };
    // A response is done: nothing to do (replaced, or seen before), unknown (never announced
    // on this socket), retry (its card is asked again), or finished (its card is complete).
    Done responseDone(const QString &responseID);

    void askNextIfIdle();

private:
    void request(const QString &cardID);
    void clearInFlight();

    Clock &m_clock;
    const CardBook &m_cards;
    QSet<QString> m_active;            // created, not yet done
    QSet<QString> m_finished;          // done this session
    QSet<QString> m_superseded;        // replaced: their text and end change nothing
    QSet<QString> m_announced;         // response.created seen on this socket
    QSet<QString> m_expectsService;    // turn cards the service should answer itself
    QSet<QString> m_noService;         // turn cards that ended while a response ran
    QSet<QString> m_retried;           // cards asked again after a passing failure
    QSet<QString> m_retryAfterDone;    // failed responses whose card is asked again when done
    QList<QString> m_queue;            // cards waiting to be asked, in order
    QHash<QString, QByteArray> m_pictures;   // screen-question cards not yet answered: their JPEG
    std::optional<QString> m_requestedFor;   // the card our outstanding request is for
    bool m_requestStale = false;             // its question changed after we asked
    int m_requestAttempts = 0;               // unanswered requests for that card
    std::unique_ptr<ClockTimer> m_requestTimer;
    std::optional<QString> m_mergeAwaiting;  // merged card waiting to replace the follow-up's answer
    std::unique_ptr<ClockTimer> m_mergeWait;
    std::unordered_map<QString, std::unique_ptr<ClockTimer>> m_serviceChecks;   // card id -> check
};
