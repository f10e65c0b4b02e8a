#include "audio/MonoRingBuffer.h"

#include <QtGlobal>

#include <algorithm>

MonoRingBuffer::MonoRingBuffer(double maxSeconds, double sampleRate)
    : m_capacity(std::max(0, int(maxSeconds * sampleRate)))
    , m_samples(size_t(m_capacity), 0.0f)
{
}

void MonoRingBuffer::push(const float *samples, int count)
{
    if (count <= 0 || m_capacity == 0)
        return;
    // Of a run longer than the whole buffer, only its newest samples can stay.
    if (count > m_capacity) {
        samples += count - m_capacity;
        count = m_capacity;
    }
    std::lock_guard guard(m_lock);
    const int overflow = m_size + count - m_capacity;
    if (overflow > 0)
        dropOldest(overflow);
    const int end = (m_start + m_size) % m_capacity;
    const int first = std::min(count, m_capacity - end);
    std::copy(samples, samples + first, m_samples.begin() + end);
    std::copy(samples + first, samples + count, m_samples.begin());
    m_size += count;
}

std::vector<float> MonoRingBuffer::pop(int count)
{
    Q_ASSERT(count >= 0);
    std::vector<float> out(size_t(std::max(count, 0)), 0.0f);
    popInto(out.data(), count);
    return out;
}

int MonoRingBuffer::popInto(float *out, int count)
{
    Q_ASSERT(count >= 0);
    if (count <= 0)
        return 0;
    std::lock_guard guard(m_lock);
    const int k = std::min(m_size, count);
    copyOut(out, k);
    dropOldest(k);
    std::fill(out + k, out + count, 0.0f);
    return k;
}

void MonoRingBuffer::clear()
{
    std::lock_guard guard(m_lock);
    m_start = 0;
    m_size = 0;
}

int MonoRingBuffer::discard(int count)
{
    if (count <= 0)
        return 0;
    std::lock_guard guard(m_lock);
    const int k = std::min(m_size, count);
    dropOldest(k);
    return k;
}

int MonoRingBuffer::available() const
{
    std::lock_guard guard(m_lock);
    return m_size;
}

void MonoRingBuffer::copyOut(float *out, int count) const
{
    const int first = std::min(count, m_capacity - m_start);
    std::copy(m_samples.begin() + m_start, m_samples.begin() + m_start + first, out);
    std::copy(m_samples.begin(), m_samples.begin() + (count - first), out + first);
}

void MonoRingBuffer::dropOldest(int count)
{
    m_start = (m_start + count) % m_capacity;
    m_size -= count;
}
