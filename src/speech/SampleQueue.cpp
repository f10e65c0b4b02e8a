#include "speech/SampleQueue.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

SampleQueue::SampleQueue(std::size_t capacity)
    : m_mask(std::bit_ceil(std::max<std::size_t>(capacity, 2)) - 1)
    , m_data(new float[m_mask + 1])
{
}

std::size_t SampleQueue::push(const float *samples, std::size_t count)
{
    const std::size_t head = m_head.load(std::memory_order_relaxed);
    const std::size_t tail = m_tail.load(std::memory_order_acquire);
    const std::size_t room = (m_mask + 1) - (head - tail);
    const std::size_t n = std::min(count, room);
    const std::size_t at = head & m_mask;
    const std::size_t first = std::min(n, m_mask + 1 - at);
    std::memcpy(m_data.get() + at, samples, first * sizeof(float));
    std::memcpy(m_data.get(), samples + first, (n - first) * sizeof(float));
    m_head.store(head + n, std::memory_order_release);
    return n;
}

std::size_t SampleQueue::pop(float *out, std::size_t max)
{
    const std::size_t tail = m_tail.load(std::memory_order_relaxed);
    const std::size_t head = m_head.load(std::memory_order_acquire);
    const std::size_t n = std::min(max, head - tail);
    const std::size_t at = tail & m_mask;
    const std::size_t first = std::min(n, m_mask + 1 - at);
    std::memcpy(out, m_data.get() + at, first * sizeof(float));
    std::memcpy(out + first, m_data.get(), (n - first) * sizeof(float));
    m_tail.store(tail + n, std::memory_order_release);
    return n;
}

void SampleQueue::clear()
{
    m_tail.store(m_head.load(std::memory_order_acquire), std::memory_order_release);
}

void SampleQueue::dropUntil(std::size_t position)
{
    const std::size_t tail = m_tail.load(std::memory_order_relaxed);
    if (static_cast<std::ptrdiff_t>(position - tail) > 0)
        m_tail.store(position, std::memory_order_release);
}

std::size_t SampleQueue::size() const
{
    return m_head.load(std::memory_order_acquire) - m_tail.load(std::memory_order_acquire);
}
