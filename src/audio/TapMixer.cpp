#include "audio/TapMixer.h"

#include <algorithm>
#include <cstring>

TapMixer::TapMixer(int maxLagFrames, int capacityFrames)
    : m_maxLag(maxLagFrames), m_buffer(size_t(capacityFrames), 0.0f)
{
}

void TapMixer::addStream(int key)
{
    m_cursors[key] = m_emitted;
}

void TapMixer::removeStream(int key)
{
    m_cursors.erase(key);
    if (m_cursors.empty())
        emitUpTo(m_end);
}

void TapMixer::reset()
{
    m_cursors.clear();
    std::fill(m_buffer.begin(), m_buffer.end(), 0.0f);
    m_emitted = m_end = 0;
}

void TapMixer::feed(int key, const float *samples, int frames)
{
    auto it = m_cursors.find(key);
    if (it == m_cursors.end() || frames <= 0)
        return;
    long long &cursor = it->second;
    cursor = std::max(cursor, m_emitted);
    const long long capacity = static_cast<long long>(m_buffer.size());
    // Make room: a run longer than the buffer pushes out what is pending.
    if (cursor + frames - m_emitted > capacity)
        emitUpTo(std::min(cursor, m_end));
    const long long offset = cursor - m_emitted;
    const long long room = std::max(0LL, capacity - offset);
    const int n = int(std::min<long long>(frames, room));
    float *dst = m_buffer.data() + offset;
    for (int i = 0; i < n; ++i)
        dst[i] += samples[i];
    cursor += frames;
    m_end = std::max(m_end, cursor);

    long long target = m_end;
    for (const auto &[k, c] : m_cursors) {
        (void)k;
        if (m_end - c <= m_maxLag)
            target = std::min(target, c);
    }
    if (target > m_emitted)
        emitUpTo(target);
}

void TapMixer::emitUpTo(long long position)
{
    const long long capacity = static_cast<long long>(m_buffer.size());
    position = std::min(position, m_emitted + capacity);
    const int n = int(position - m_emitted);
    if (n <= 0)
        return;
    if (onMixed)
        onMixed(m_buffer.data(), n);
    const long long pending = std::min(m_end, m_emitted + capacity) - position;
    if (pending > 0)
        std::memmove(m_buffer.data(), m_buffer.data() + n, size_t(pending) * sizeof(float));
    const long long keep = std::max(0LL, pending);
    std::fill(m_buffer.begin() + keep, m_buffer.begin() + std::min(capacity, keep + n), 0.0f);
    m_emitted = position;
    m_end = std::max(m_end, m_emitted);
}
