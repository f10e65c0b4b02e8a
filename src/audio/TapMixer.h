#pragma once

#include <functional>
#include <map>
#include <vector>

// Mixes several mono 48 kHz streams that run on one clock (the monitors of one application's
// sink inputs) into one stream. Samples are emitted as soon as every stream that is still
// delivering has reached them; a stream more than `maxLagFrames` behind the others (paused,
// corked or gone quiet) no longer holds the mix back, and its next samples join at the
// current end. One stream alone passes straight through. Single-threaded; no allocation
// after construction.
class TapMixer
{
public:
    explicit TapMixer(int maxLagFrames = 4800, int capacityFrames = 96000);

    // Called with each run of mixed samples.
    std::function<void(const float *samples, int frames)> onMixed;

    void addStream(int key);
    void removeStream(int key);
    void feed(int key, const float *samples, int frames);
    void reset();

private:
    void emitUpTo(long long position);

    int m_maxLag;
    std::vector<float> m_buffer;   // m_buffer[0] is the sample at m_emitted
    long long m_emitted = 0;
    long long m_end = 0;           // furthest written position
    std::map<int, long long> m_cursors;
};
