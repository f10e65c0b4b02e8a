#pragma once

#include <QByteArray>

#include <vector>

struct soxr;

// Turns mono float audio into the model's 24 kHz mono little-endian 16-bit PCM with libsoxr
// at high quality. The resampler's state carries over from block to block, so a stream cut
// into blocks of any size converts as one. One thread at a time.
class Pcm16Resampler
{
public:
    static constexpr double outputRate = 24000.0;

    explicit Pcm16Resampler(double inputRate = 48000.0);
    ~Pcm16Resampler();
    Pcm16Resampler(const Pcm16Resampler &) = delete;
    Pcm16Resampler &operator=(const Pcm16Resampler &) = delete;

    bool isValid() const { return m_soxr != nullptr; }
    double inputRate() const { return m_inputRate; }
    // The converted samples available after this block (may be empty while the filter fills).
    QByteArray process(const float *samples, int frames);

private:
    soxr *m_soxr = nullptr;
    double m_inputRate;
    std::vector<short> m_out;
};
