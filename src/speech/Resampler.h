#pragma once

#include <cstdint>
#include <vector>

struct soxr;

// Streaming sample-rate conversion of mono float audio to 16-bit samples (libsoxr).
class Resampler
{
public:
    Resampler(double inputRate, double outputRate);
    ~Resampler();
    Resampler(const Resampler &) = delete;
    Resampler &operator=(const Resampler &) = delete;

    bool isValid() const { return m_soxr != nullptr; }
    // Converts `frames` samples and appends the output to `out`.
    void process(const float *in, std::size_t frames, std::vector<std::int16_t> &out);
    // Ends the stream: appends what the filter still holds, then gets ready for a new stream.
    void flush(std::vector<std::int16_t> &out);
    // Forgets the current stream.
    void reset();

private:
    soxr *m_soxr = nullptr;
    double m_ratio;
};
