#include "session/AnswerClock.h"

AnswerClock::AnswerClock(Clock &clock, QObject *parent)
    : QObject(parent)
    , m_clock(clock)
{
}

AnswerClock::Heard AnswerClock::hear(float micLevel)
{
    Heard heard;
    const Clock::TimePoint now = m_clock.now();
    if (micLevel >= voiceThreshold) {
        m_lastVoiceAt = now;
        if (!m_isAnswering) {
            heard.answerStarted = true;
            startAnswer(now);
        }
        if (!m_isSpeaking) {
            setSpeaking(true);
            heard.voice = Voice::started;
        } else {
            heard.voice = Voice::goesOn;
        }
        return heard;
    }
    if (m_isSpeaking && m_lastVoiceAt && Clock::secondsBetween(*m_lastVoiceAt, now) >= silenceToEnd) {
        setSpeaking(false);
        heard.voice = Voice::ended;
    }
    return heard;
}

void AnswerClock::startAnswer(Clock::TimePoint at)
{
    setAnswering(true);
    m_answerStart = at;
    setLastAnswerDuration(std::nullopt);
    m_ticker = m_clock.schedule(0.2, true, [this] {
        if (m_answerStart) {
            setSpeakingElapsed(Clock::secondsBetween(*m_answerStart, m_clock.now()));
        }
    });
}

std::optional<double> AnswerClock::answerSeconds() const
{
    if (!m_isAnswering || !m_answerStart) {
        return std::nullopt;
    }
    return Clock::secondsBetween(*m_answerStart, m_clock.now());
}

bool AnswerClock::keepAnswerDuration()
{
    if (!m_isAnswering) {
        return false;
    }
    if (m_answerStart) {
        setLastAnswerDuration(Clock::secondsBetween(*m_answerStart, m_clock.now()));
    }
    return true;
}

void AnswerClock::end()
{
    m_ticker.reset();
    setSpeaking(false);
    setAnswering(false);
    m_answerStart.reset();
    setSpeakingElapsed(0);
}

void AnswerClock::setSpeaking(bool speaking)
{
    if (m_isSpeaking != speaking) {
        m_isSpeaking = speaking;
        emit isSpeakingChanged();
    }
}

void AnswerClock::setAnswering(bool answering)
{
    if (m_isAnswering != answering) {
        m_isAnswering = answering;
        emit isAnsweringChanged();
    }
}

void AnswerClock::setSpeakingElapsed(double seconds)
{
    if (m_speakingElapsed != seconds) {
        m_speakingElapsed = seconds;
        emit speakingElapsedChanged();
    }
}

void AnswerClock::setLastAnswerDuration(std::optional<double> seconds)
{
    if (m_lastAnswerDuration != seconds) {
        m_lastAnswerDuration = seconds;
        emit lastAnswerDurationChanged();
    }
}
