#pragma once

#include "speech/SpeechEngine.h"

#include <QMutex>
#include <QMutexLocker>
#include <QWaitCondition>

#include <atomic>
#include <cmath>
#include <optional>

// A scripted engine, safe to drive from the test thread while a worker thread uses it.
class FakeSpeechEngine final : public SpeechEngine
{
public:
    // Partial text reported once any audio of the utterance was processed.
    void setHypothesis(const QString &text) { QMutexLocker lock(&m_mutex); m_hypothesis = text; }
    // What endUtterance() returns instead of the hypothesis.
    void setEndError(std::optional<Error> error) { QMutexLocker lock(&m_mutex); m_endError = std::move(error); }
    // Holds endUtterance()/recognise() until release() (a recogniser that does not finish).
    void setHold(bool hold) { QMutexLocker lock(&m_mutex); m_hold = hold; }
    // Holds the next startUtterance() until release() (a worker busy elsewhere).
    void setHoldStart(bool hold) { QMutexLocker lock(&m_mutex); m_holdStart = hold; }
    void release() { QMutexLocker lock(&m_mutex); m_hold = false; m_holdStart = false; m_released.wakeAll(); }
    void setAvailability(const SpeechAvailability &availability) { QMutexLocker lock(&m_mutex); m_availability = availability; }

    std::atomic<int> starts{0};
    std::atomic<int> cancels{0};
    std::atomic<int> ends{0};
    std::atomic<int> recognitions{0};
    std::atomic<long> samplesProcessed{0};
    std::atomic<long> lastUtteranceSamples{0}; // audio of the last utterance that ended
    std::atomic<bool> holding{false};

    SpeechAvailability availability(const QLocale &) const override
    {
        QMutexLocker lock(&m_mutex);
        return m_availability;
    }
    Outcome load() override { return {}; }
    Outcome startUtterance() override
    {
        ++starts;
        {
            QMutexLocker lock(&m_mutex);
            holding = m_holdStart;
            while (m_holdStart)
                m_released.wait(&m_mutex);
            holding = false;
        }
        m_utteranceSamples = 0;
        return {};
    }
    Outcome process(const std::int16_t *, std::size_t count) override
    {
        m_utteranceSamples += static_cast<long>(count);
        samplesProcessed += static_cast<long>(count);
        return {};
    }
    QString partialHypothesis() override
    {
        QMutexLocker lock(&m_mutex);
        return m_utteranceSamples > 0 ? m_hypothesis : QString();
    }
    Text endUtterance() override
    {
        ++ends;
        lastUtteranceSamples = m_utteranceSamples;
        QMutexLocker lock(&m_mutex);
        waitWhileHeld();
        if (m_endError)
            return Text::failure(*m_endError);
        if (m_hypothesis.isEmpty())
            return Text::failure(Error{kNothingRecognised, QStringLiteral("No speech detected")});
        return m_hypothesis;
    }
    void cancelUtterance() override { ++cancels; }
    // "level N": N is the amplitude of a sine in tenths of full scale (from its RMS).
    // What a second decode of a segment returns; none means the same as endUtterance() would.
    void setSecondPassText(std::optional<QString> text) { QMutexLocker lock(&m_mutex); m_secondPassText = std::move(text); }
    std::atomic<int> secondPasses{0};
    std::atomic<long> lastSecondPassSamples{0};
    Text decodeAgain(const std::int16_t *, std::size_t count) override
    {
        ++secondPasses;
        lastSecondPassSamples = static_cast<long>(count);
        QMutexLocker lock(&m_mutex);
        if (m_secondPassText)
            return *m_secondPassText;
        if (m_endError)
            return Text::failure(*m_endError);
        if (m_hypothesis.isEmpty())
            return Text::failure(Error{kNothingRecognised, QStringLiteral("No speech detected")});
        return m_hypothesis;
    }
    // A held recognition gives up as soon as `stop` is set.
    Text recognise(const std::int16_t *samples, std::size_t count, const std::atomic<bool> &stop) override
    {
        ++recognitions;
        QMutexLocker lock(&m_mutex);
        holding = m_hold;
        while (m_hold && !stop.load())
            m_released.wait(&m_mutex, 10);
        holding = false;
        if (stop.load())
            return Text::failure(Error{kCancelled, QStringLiteral("The decoding was stopped")});
        double energy = 0;
        for (std::size_t i = 0; i < count; ++i)
            energy += double(samples[i]) * samples[i];
        if (energy == 0)
            return Text::failure(Error{kNothingRecognised, QStringLiteral("No speech detected")});
        const double rms = std::sqrt(energy / double(count)) / 32768.0;
        return QStringLiteral("level %1").arg(std::lround(rms * std::sqrt(2.0) * 10.0));
    }

private:
    void waitWhileHeld()
    {
        holding = m_hold;
        while (m_hold)
            m_released.wait(&m_mutex);
        holding = false;
    }

    mutable QMutex m_mutex;
    QWaitCondition m_released;
    QString m_hypothesis;
    std::optional<Error> m_endError;
    std::optional<QString> m_secondPassText;
    bool m_hold = false;
    bool m_holdStart = false;
    SpeechAvailability m_availability = SpeechAvailability::ready();
    long m_utteranceSamples = 0;
};
