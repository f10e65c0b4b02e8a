#pragma once

#include <mutex>
#include <vector>

// A bounded, thread-safe first-in first-out queue of float samples that hands meeting audio
// from the tap thread to the microphone thread. When full, the oldest samples are dropped;
// when short, pop() pads with silence, so it always returns exactly what was asked for.
// The storage is allocated once, at construction: pushing and popping never allocate.
class MonoRingBuffer
{
public:
    MonoRingBuffer(double maxSeconds, double sampleRate);

    void push(const float *samples, int count);
    // Exactly `count` samples: the oldest queued ones, then zeros.
    std::vector<float> pop(int count);
    // The same into caller storage of at least `count` floats (no allocation); returns how
    // many were real samples rather than padding.
    int popInto(float *out, int count);
    void clear();
    // Drops up to `count` of the oldest samples; returns how many were dropped.
    int discard(int count);

    int capacity() const { return m_capacity; }
    int available() const;

private:
    // Both with m_lock held.
    void copyOut(float *out, int count) const;
    void dropOldest(int count);

    mutable std::mutex m_lock;
    int m_capacity;
    std::vector<float> m_samples;   // m_capacity slots
    int m_start = 0;                // slot of the oldest queued sample
    int m_size = 0;
};
