// Screen questions: a picture of the screen sent to the running session, answered in a card
// of its own.

#include "session/SessionController.h"

#include "realtime/RealtimeScreenQuestion.h"
#include "session/RealtimeLink.h"

const QString SessionController::screenQuestionText = QStringLiteral("Screen question");

bool SessionController::askAboutScreen(const QByteArray &jpeg, const QByteArray &thumbnail)
{
    if (!m_isSessionActive) {
        setBannerText(QStringLiteral("Start a session to ask about your screen — nothing was sent."));
        return false;
    }
    if (jpeg.isEmpty()) {
        setBannerText(QStringLiteral("The screenshot could not be prepared — nothing was sent."));
        return false;
    }
    if (!m_client.askAboutImage(jpeg, RealtimeScreenQuestion::prompt())) {
        setBannerText(QStringLiteral("This connection cannot send pictures — nothing was sent."));
        return false;
    }
    QAPair pair = QAPair::make(screenQuestionText, std::nullopt, m_clock.now(), m_clock.wallNow());
    pair.screenThumbnail = thumbnail;
    appendPair(pair);
    m_screenPairID = pair.id;
    m_questionAt.insert(pair.id, m_clock.now());
    appendEvent(QStringLiteral("screen_question"), {{QStringLiteral("pair"), pair.id},
                                                    {QStringLiteral("image_bytes"), qint64(jpeg.size())}});
    return true;
}

void SessionController::screenQuestionFailed(const QString &message)
{
    appendEvent(QStringLiteral("screen_question_not_sent"), {{QStringLiteral("reason"), message}});
    setBannerText(message);
}
