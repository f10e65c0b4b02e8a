#include "realtimesim/EnergyVad.h"

#include <QtEndian>

#include <algorithm>
#include <cmath>

namespace {
constexpr int kFrameSamples = 240; // 10 ms at 24 kHz
constexpr int kFrameBytes = kFrameSamples * 2;
} // namespace

void EnergyVad::configure(double threshold, int prefixPaddingMs, int silenceDurationMs)
{
    m_threshold = std::clamp(threshold, 0.0, 1.0);
    m_prefixPaddingMs = std::max(prefixPaddingMs, 0);
    m_silenceDurationMs = std::max(silenceDurationMs, 10);
}

QList<EnergyVad::Event> EnergyVad::feed(const QByteArray &pcm16)
{
    QList<Event> events;
    m_partial.append(pcm16);
    qsizetype offset = 0;
    qint16 samples[kFrameSamples];
    while (m_partial.size() - offset >= kFrameBytes) {
        for (int i = 0; i < kFrameSamples; ++i)
            samples[i] = qFromLittleEndian<qint16>(m_partial.constData() + offset + 2 * i);
        frame(samples, events);
        offset += kFrameBytes;
    }
    m_partial.remove(0, offset);
    return events;
}

void EnergyVad::frame(const qint16 *samples, QList<Event> &events)
{
    double sum = 0;
    for (int i = 0; i < kFrameSamples; ++i)
        sum += double(samples[i]) * samples[i];
    const double rms = std::sqrt(sum / kFrameSamples) / 32768.0;
    const bool voiced = rms >= m_threshold / 10.0;
    const qint64 startMs = m_frames * 10;
    ++m_frames;

    if (voiced) {
        if (!m_inSpeech) {
            m_inSpeech = true;
            events.append({true, std::max<qint64>(0, startMs - m_prefixPaddingMs)});
        }
        m_lastVoicedEndMs = startMs + 10;
        m_silentMs = 0;
    } else if (m_inSpeech) {
        m_silentMs += 10;
        if (m_silentMs >= m_silenceDurationMs) {
            m_inSpeech = false;
            m_silentMs = 0;
            events.append({false, m_lastVoicedEndMs});
        }
    }
}
