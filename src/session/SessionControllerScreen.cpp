// Screen questions: a picture of the screen sent to the running session, answered in a card
// of its own.

#include "session/SessionController.h"

#include "realtime/RealtimeScreenQuestion.h"
#include "realtime/RealtimeService.h"

namespace {
QString screenQuestionText()
{
    return SessionController::tr("Screen question");
}
} // namespace

// Sends a picture of the screen (JPEG) to the running session and opens a "Screen
// question" card with `thumbnail` for its answer. Without a session, or when the link
// cannot send pictures, nothing is sent, a banner says so and the result is false.
bool SessionController::askAboutScreen(const QByteArray &jpeg, const QByteArray &thumbnail)
{
    if (!isSessionActive()) {
        setBannerText(tr("Start a session to ask about your screen — nothing was sent."));
        return false;
    }
    if (jpeg.isEmpty()) {
        setBannerText(tr("The screenshot could not be prepared — nothing was sent."));
        return false;
    }
    QAPair pair = QAPair::make(screenQuestionText(), std::nullopt, m_parts.clock.now(), m_parts.clock.wallNow());
    pair.screenThumbnail = thumbnail;
    m_cards.append(pair);
    // Kept until the card is answered, so a reconnect can ask again; never re-seeded.
    m_scheduler.addPicture(pair.id, jpeg);
    m_turns.questionAt.insert(pair.id, m_parts.clock.now());
    appendEvent(QStringLiteral("screen_question"), {{QStringLiteral("pair"), pair.id},
                                                    {QStringLiteral("image_bytes"), qint64(jpeg.size())}});
    // Asked like any other card: at once when no answer is running, else when it finishes.
    const QString pairID = pair.id;
    m_scheduler.queue(pairID, false);
    m_scheduler.askNextIfIdle();
    return m_cards.indexOf(pairID) >= 0;   // gone: the link refused the picture on the spot
}

// A screen question that ended before anything was sent (refused, cancelled): one line.
void SessionController::screenQuestionFailed(const QString &message)
{
    appendEvent(QStringLiteral("screen_question_not_sent"), {{QStringLiteral("reason"), message}});
    setBannerText(message);
}

// Sends the picture of the screen-question card `pairID`. A link that refuses pictures
// removes the card, with a banner, and the result is false.
bool SessionController::sendScreenQuestion(const QString &pairID)
{
    if (m_parts.client.askAboutImage(m_scheduler.picture(pairID), RealtimeScreenQuestion::prompt())) {
        return true;
    }
    // Nothing was sent, so no card stays behind.
    const int index = m_cards.indexOf(pairID);
    if (index >= 0) {
        m_cards.removeAt(index);
    }
    setBannerText(tr("This connection cannot send pictures — nothing was sent."));
    return false;
}
