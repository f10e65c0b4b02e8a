#include "speech/UtteranceSplitter.h"

#include <algorithm>
#include <cmath>
#include <tuple>

UtteranceSplitter::UtteranceSplitter(int channels, double rate)
    : m_channels(std::max(channels, 1))
    , m_windowFrames(std::max<std::int64_t>(1, std::llround(rate * kWindowSeconds)))
    , m_silenceFrames(std::llround(rate * kSilenceToEnd))
    , m_maxFrames(std::llround(rate * kMaxUtteranceSeconds))
    , m_state(static_cast<std::size_t>(m_channels))
{
}

void UtteranceSplitter::process(const float *interleaved, std::int64_t frames)
{
    for (std::int64_t i = 0; i < frames; ++i) {
        const float *frame = interleaved + i * m_channels;
        for (int c = 0; c < m_channels; ++c) {
            Channel &state = m_state[static_cast<std::size_t>(c)];
            state.windowPeak = std::max(state.windowPeak, std::fabs(frame[c]));
        }
        ++m_position;
        if (m_position - m_windowStart == m_windowFrames) {
            for (int c = 0; c < m_channels; ++c)
                closeWindow(c, m_windowStart, m_position);
            m_windowStart = m_position;
        }
    }
}

void UtteranceSplitter::closeWindow(int channel, std::int64_t windowStart, std::int64_t windowEnd)
{
    Channel &state = m_state[static_cast<std::size_t>(channel)];
    const bool voice = state.windowPeak >= kVoiceThreshold;
    state.windowPeak = 0.0f;
    if (voice) {
        if (state.open && windowEnd - state.start > m_maxFrames)
            close(channel);
        if (!state.open) {
            state.open = true;
            state.start = windowStart;
        }
        state.lastVoiceEnd = windowEnd;
    } else if (state.open && windowEnd - state.lastVoiceEnd >= m_silenceFrames) {
        close(channel);
    }
}

void UtteranceSplitter::close(int channel)
{
    Channel &state = m_state[static_cast<std::size_t>(channel)];
    if (state.open)
        m_found.push_back({channel, state.start, state.lastVoiceEnd});
    state.open = false;
}

std::vector<UtteranceSplitter::Utterance> UtteranceSplitter::finish()
{
    if (m_position > m_windowStart) {
        for (int c = 0; c < m_channels; ++c)
            closeWindow(c, m_windowStart, m_position);
        m_windowStart = m_position;
    }
    for (int c = 0; c < m_channels; ++c)
        close(c);
    std::vector<Utterance> found = std::move(m_found);
    m_found.clear();
    std::sort(found.begin(), found.end(), [](const Utterance &a, const Utterance &b) {
        return std::tie(a.startFrame, a.channel) < std::tie(b.startFrame, b.channel);
    });
    return found;
}
