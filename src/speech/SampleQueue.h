#pragma once

#include <atomic>
#include <cstddef>
#include <memory>

// A fixed-size single-producer, single-consumer queue of samples without locks: the audio
// thread pushes, one worker pops. A push that does not fit is cut short, never waits.
class SampleQueue
{
public:
    // `capacity` is rounded up to a power of two.
    explicit SampleQueue(std::size_t capacity);

    // Producer: copies up to `count` samples; returns how many fit.
    std::size_t push(const float *samples, std::size_t count);
    // Consumer: copies up to `max` samples into `out`; returns how many.
    std::size_t pop(float *out, std::size_t max);
    // Consumer: drops everything queued.
    void clear();
    // Any thread: the count of samples pushed so far, a position in the stream.
    std::size_t writePosition() const { return m_head.load(std::memory_order_acquire); }
    // Consumer: drops what was pushed before `position` (a writePosition() taken earlier).
    void dropUntil(std::size_t position);
    std::size_t size() const;

private:
    std::size_t m_mask;
    std::unique_ptr<float[]> m_data;
    std::atomic<std::size_t> m_head{0}; // written by the producer
    std::atomic<std::size_t> m_tail{0}; // written by the consumer
};
