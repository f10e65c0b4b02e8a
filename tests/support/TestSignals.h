#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

#include <vector>

// Test signals made with sox and espeak-ng, and measurements on captured audio. Files are
// read back with libsndfile, never with the product's own code.
namespace kbtest {

// A sine tone WAV (48 kHz float-free 16-bit) of `channels` identical channels.
bool makeTone(const QString &path, double frequency, double seconds, int channels = 1, double amplitude = 0.5);
bool makeSilence(const QString &path, double seconds, int channels = 1);
// A two-channel WAV whose left is `left` and right is `right` (both mono).
bool mergeToStereo(const QString &left, const QString &right, const QString &out);
// Spoken text at 48 kHz mono.
bool makeSpeech(const QString &path, const QString &text);

// Power of `frequency` in the samples (Goertzel), normalised by the sample count.
double goertzelPower(const float *samples, int count, double sampleRate, double frequency);
// Power at `frequency` as a share of the power at it and at `other`.
double toneShare(const std::vector<float> &samples, double sampleRate, double frequency, double other);
double rms(const float *samples, int count);
std::vector<float> pcm16ToFloat(const QByteArray &pcm16le);

struct WavData
{
    bool ok = false;
    int sampleRate = 0;
    int channels = 0;
    qint64 frames = 0;
    std::vector<float> samples;   // interleaved
    std::vector<float> channel(int c) const;
};
WavData readWav(const QString &path);

// The answers of `soxi` for the file: keys "rate", "channels", "bits", "samples", "encoding";
// empty when soxi rejects it.
QHash<QString, QString> soxInfo(const QString &path);

} // namespace kbtest
