#pragma once

#include "audio/AudioCaptureEngine.h"

#include "TestSignals.h"

#include <QByteArray>
#include <QList>
#include <QStringList>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <mutex>
#include <vector>

namespace kbtest {

inline qint64 steadyNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

inline double secondsSince(qint64 ns)
{
    return double(steadyNs() - ns) / 1e9;
}

// An engine and what it hands out: the model's audio, the microphone's, the meters, the
// messages and health reports, and when loud audio first came after being armed. The
// audio-thread callbacks lock only this watch's mutex.
struct CaptureWatch
{
    AudioCaptureEngine engine;
    std::mutex lock;
    QByteArray pcm;
    std::vector<float> mic;
    std::atomic<qint64> meetingArmedAt{0}, meetingLoudAt{0};
    std::atomic<qint64> micArmedAt{0}, micLoudAt{0};
    std::atomic<int> levelPosts{0};
    float lastMeetingLevel = 0;
    QStringList micUnavailable;
    QStringList errors;
    QList<CaptureHealth> health;

    CaptureWatch()
    {
        engine.onPCM16 = [this](const QByteArray &b) {
            const auto *s = reinterpret_cast<const qint16 *>(b.constData());
            if (meetingArmedAt != 0 && meetingLoudAt == 0) {
                for (qsizetype i = 0; i < b.size() / 2; ++i) {
                    if (std::abs(int(s[i])) > 3000) {
                        meetingLoudAt = steadyNs();
                        break;
                    }
                }
            }
            std::lock_guard g(lock);
            pcm += b;
        };
        engine.onMicBuffer = [this](const float *s, int n) {
            if (micArmedAt != 0 && micLoudAt == 0) {
                for (int i = 0; i < n; ++i) {
                    if (std::fabs(s[i]) > 0.1f) {
                        micLoudAt = steadyNs();
                        break;
                    }
                }
            }
            std::lock_guard g(lock);
            mic.insert(mic.end(), s, s + n);
        };
        engine.onLevels = [this](float, float meeting) {
            ++levelPosts;
            lastMeetingLevel = meeting;
        };
        engine.onMicUnavailable = [this](const QString &m) { micUnavailable << m; };
        engine.onError = [this](const QString &m) { errors << m; };
        engine.onHealth = [this](const CaptureHealth &h) { health << h; };
    }

    void armMeeting()
    {
        meetingLoudAt = 0;
        meetingArmedAt = steadyNs();
    }
    void armMic()
    {
        micLoudAt = 0;
        micArmedAt = steadyNs();
    }
    // Seconds from arming to the first loud audio.
    double meetingDelay() const { return double(meetingLoudAt - meetingArmedAt) / 1e9; }
    double micDelay() const { return double(micLoudAt - micArmedAt) / 1e9; }

    double pcmSeconds()
    {
        std::lock_guard g(lock);
        return double(pcm.size()) / 2 / 24000.0;
    }
    double micSeconds()
    {
        std::lock_guard g(lock);
        return double(mic.size()) / 48000.0;
    }
    void clear()
    {
        std::lock_guard g(lock);
        pcm.clear();
        mic.clear();
    }
    // The last `seconds` of the model's audio (24 kHz) and of the microphone's (48 kHz).
    std::vector<float> lastPcm(double seconds)
    {
        std::lock_guard g(lock);
        const qsizetype bytes = std::min<qsizetype>(pcm.size(), qsizetype(seconds * 24000) * 2);
        return pcm16ToFloat(pcm.right(bytes));
    }
    std::vector<float> lastMic(double seconds)
    {
        std::lock_guard g(lock);
        const size_t n = std::min(mic.size(), size_t(seconds * 48000));
        return std::vector<float>(mic.end() - qsizetype(n), mic.end());
    }
    // True once more than `seconds` of model audio came and its last half second is loud.
    bool meetingIsLoudAfter(double seconds) { return pcmSeconds() > seconds && rms(lastPcm(0.5).data(), 12000) > 0.05; }
    CaptureHealth lastHealth() const { return health.isEmpty() ? CaptureHealth{} : health.last(); }
};

} // namespace kbtest
