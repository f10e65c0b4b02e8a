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
    const QString pairID = pair.id;
    m_screenTimer = m_clock.schedule(screenAnswerTimeoutSeconds, false, [this, pairID] { screenAnswerTimedOut(pairID); });
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

void SessionController::screenResponseCreated(const QString &responseID, bool requested)
{
    if (!requested || !m_screenPairID)
        return;
    const int index = indexOfPair(*std::exchange(m_screenPairID, std::nullopt));
    m_screenTimer.reset();
    if (index < 0 || m_pairs.at(index).responseID || m_pairs.at(index).isComplete)
        return;
    m_pairs[index].responseID = responseID;
    emit pairChanged(index);
}

void SessionController::screenAnswerTimedOut(const QString &pairID)
{
    m_screenTimer.reset();
    if (m_screenPairID != pairID)
        return;
    m_screenPairID.reset();
    const int index = indexOfPair(pairID);
    if (index < 0 || m_pairs.at(index).responseID || m_pairs.at(index).isComplete)
        return;
    m_pairs[index].isComplete = true;
    emit pairChanged(index);
    appendEvent(QStringLiteral("screen_question_unanswered"), {{QStringLiteral("pair"), pairID}});
    if (m_isSessionActive)
        setBannerText(QStringLiteral("The screen question got no answer — ask again."));
}
