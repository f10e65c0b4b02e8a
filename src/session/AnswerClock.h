#pragma once

#include "session/Clock.h"

#include <QObject>

#include <memory>
#include <optional>

// The user's side of the conversation in time: whether the user is speaking (microphone
// level at or above the voice threshold, until 2.0 s of silence) and how long the current
// answer has run. An answer begins with the first voice and runs through pauses until it
// ends (the other side takes over, or the session stops). Lives on the GUI thread.
class AnswerClock : public QObject
{
    Q_OBJECT

public:
    static constexpr float voiceThreshold = 0.045f;
    static constexpr double silenceToEnd = 2.0;

    // What one microphone level changed.
    enum class Voice { unchanged, started, goesOn, ended };
    struct Heard
    {
        bool answerStarted = false;   // this level began a new answer
        Voice voice = Voice::unchanged;
    };

    explicit AnswerClock(Clock &clock, QObject *parent = nullptr);

    Heard hear(float micLevel);
    // Seconds the current answer has run; none when no answer runs.
    std::optional<double> answerSeconds() const;
    // The other side took over: the answer's length is kept as the last answer duration.
    // False when no answer ran (then nothing changes).
    bool keepAnswerDuration();
    // Ends speaking and the answer (the caller records it first).
    void end();
    void forgetLastAnswer() { setLastAnswerDuration(std::nullopt); }

    bool isSpeaking() const { return m_isSpeaking; }
    bool isAnswering() const { return m_isAnswering; }
    // Seconds since the answer began, updated five times a second; 0 when none runs.
    double speakingElapsed() const { return m_speakingElapsed; }
    std::optional<double> lastAnswerDuration() const { return m_lastAnswerDuration; }

signals:
    void isSpeakingChanged();
    void isAnsweringChanged();
    void speakingElapsedChanged();
    void lastAnswerDurationChanged();

private:
    void startAnswer(Clock::TimePoint at);
    void setSpeaking(bool speaking);
    void setAnswering(bool answering);
    void setSpeakingElapsed(double seconds);
    void setLastAnswerDuration(std::optional<double> seconds);

    Clock &m_clock;
    bool m_isSpeaking = false;
    bool m_isAnswering = false;
    double m_speakingElapsed = 0;
    std::optional<double> m_lastAnswerDuration;
    std::optional<Clock::TimePoint> m_answerStart;
    std::optional<Clock::TimePoint> m_lastVoiceAt;
    std::unique_ptr<ClockTimer> m_ticker;
};
