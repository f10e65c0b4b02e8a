// The user's side: speaking detection from the microphone level, the answer clock, and the
// transcribed segments that fill the current card's "My answer".

#include "session/SessionController.h"

#include "session/MicTranscription.h"
#include "session/TextRules.h"
#include "settings/AppSettings.h"

void SessionController::trackSpeaking(float micLevel)
{
    if (!m_isSessionActive) {
        return;
    }
    const Clock::TimePoint now = m_clock.now();
    if (micLevel >= m_voiceThreshold) {
        m_lastVoiceAt = now;
        if (!m_isAnswering) {
            startAnswerClock(now);
        }
        if (!m_isSpeaking) {
            setSpeaking(true);
            beginMyAnswerSegment();
        } else if (m_settings.transcribeMyAnswers() && !m_micTranscriber.isSegmentRunning()) {
            // A segment that ended on its own is reopened while the user keeps talking.
            beginMyAnswerSegment();
        }
        return;
    }
    if (m_isSpeaking && m_lastVoiceAt && Clock::secondsBetween(*m_lastVoiceAt, now) >= m_silenceToEnd) {
        setSpeaking(false);
        if (m_micTranscriber.isSegmentRunning()) {
            m_micTranscriber.end();
        }
    }
}

void SessionController::startAnswerClock(Clock::TimePoint at)
{
    appendEvent(QStringLiteral("you_started"),
                {{QStringLiteral("pair"), m_pairs.isEmpty() ? QString() : m_pairs.last().id}});
    setAnswering(true);
    m_speakingStart = at;
    setLastAnswerDuration(std::nullopt);
    m_speakingTimer = m_clock.schedule(0.2, true, [this] {
        if (m_speakingStart) {
            setSpeakingElapsed(Clock::secondsBetween(*m_speakingStart, m_clock.now()));
        }
    });
}

void SessionController::beginMyAnswerSegment()
{
    if (!m_settings.transcribeMyAnswers()) {
        return;
    }
    if (m_pairs.isEmpty()) {
        QAPair placeholder = QAPair::make(QString(), std::nullopt, m_clock.now(), m_clock.wallNow());
        placeholder.isComplete = true;
        appendPair(placeholder);
    }
    const int index = int(m_pairs.size()) - 1;
    QAPair &pair = m_pairs[index];
    m_speakingPairID = pair.id;
    pair.myAnswerInProgress = true;
    m_committedAnswers.insert(pair.id, pair.myAnswer);
    emit pairChanged(index);
    m_micTranscriber.begin();
}

void SessionController::updateMyAnswer(const QString &text, bool final)
{
    if (!m_speakingPairID) {
        return;
    }
    const int index = indexOfPair(*m_speakingPairID);
    if (index < 0) {
        return;
    }
    const QString committed = m_committedAnswers.value(*m_speakingPairID);
    const QString combined = committed.isEmpty() ? text : committed + QLatin1Char(' ') + text;
    QAPair &pair = m_pairs[index];
    pair.myAnswer = combined;
    if (final) {
        m_committedAnswers.insert(*m_speakingPairID, combined);
        pair.myAnswerInProgress = m_isAnswering;
    }
    emit pairChanged(index);
}

void SessionController::interviewerTookOver()
{
    if (!m_isAnswering) {
        return;
    }
    if (m_speakingStart) {
        setLastAnswerDuration(Clock::secondsBetween(*m_speakingStart, m_clock.now()));
    }
    endSpeaking();
}

void SessionController::endSpeaking()
{
    if (m_isAnswering && m_speakingStart) {
        const QString pairID = m_speakingPairID.value_or(QString());
        const QString text = m_committedAnswers.value(pairID);
        appendEvent(QStringLiteral("you_stopped"),
                    {{QStringLiteral("pair"), pairID},
                     {QStringLiteral("seconds"), CostModel::rounded(Clock::secondsBetween(*m_speakingStart, m_clock.now()), 1)},
                     {QStringLiteral("words"), qint64(TextRules::wordCount(text))},
                     {QStringLiteral("text"), text}});
    }
    if (m_micTranscriber.isSegmentRunning()) {
        m_micTranscriber.end();
    }
    m_speakingTimer.reset();
    if (m_speakingPairID) {
        const int index = indexOfPair(*m_speakingPairID);
        if (index >= 0 && m_pairs.at(index).myAnswerInProgress) {
            m_pairs[index].myAnswerInProgress = false;
            emit pairChanged(index);
        }
    }
    setSpeaking(false);
    setAnswering(false);
    m_speakingStart.reset();
    setSpeakingElapsed(0);
}
