#include "audio/MonoRingBuffer.h"

#include <QtGlobal>

#include <algorithm>

MonoRingBuffer::MonoRingBuffer(double maxSeconds, double sampleRate)
    : m_capacity(int(maxSeconds * sampleRate))
{
}

void MonoRingBuffer::push(const float *samples, int count)
{
    if (count <= 0)
        return;
    std::lock_guard guard(m_lock);
    m_samples.insert(m_samples.end(), samples, samples + count);
    const auto total = qsizetype(m_samples.size());
    if (total > m_capacity)
        m_samples.erase(m_samples.begin(), m_samples.begin() + (total - m_capacity));
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
    const int k = std::min(int(m_samples.size()), count);
    std::copy(m_samples.begin(), m_samples.begin() + k, out);
    m_samples.erase(m_samples.begin(), m_samples.begin() + k);
    std::fill(out + k, out + count, 0.0f);
    return k;
}

void MonoRingBuffer::clear()
{
    std::lock_guard guard(m_lock);
    m_samples.clear();   // keeps the allocated storage for the next session
}

int MonoRingBuffer::discard(int count)
{
    if (count <= 0)
        return 0;
    std::lock_guard guard(m_lock);
    const int k = std::min(int(m_samples.size()), count);
    m_samples.erase(m_samples.begin(), m_samples.begin() + k);
    return k;
}

int MonoRingBuffer::available() const
{
    std::lock_guard guard(m_lock);
    return int(m_samples.size());
}
