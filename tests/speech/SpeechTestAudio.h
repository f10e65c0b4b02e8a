#pragma once

// Test audio: the pocketsphinx-testdata clips, converted and mixed into WAV files.
#include "speech/RecordingTranscriber.h"

#include <QFile>
#include <QList>
#include <QString>

#include <sndfile.h>
#include <soxr.h>

#include <cmath>
#include <cstdint>
#include <optional>
#include <vector>

namespace SpeechTestAudio {

inline QString dataDir()
{
    return QStringLiteral("/usr/share/pocketsphinx/test/data");
}

// A 16 kHz mono clip (.raw: headerless s16; anything else through libsndfile) as floats.
inline std::vector<float> readClip(const QString &path)
{
    std::vector<float> out;
    if (path.endsWith(QStringLiteral(".raw"))) {
        QFile f(path);
        if (!f.open(QIODevice::ReadOnly))
            return out;
        const QByteArray bytes = f.readAll();
        const auto *s = reinterpret_cast<const std::int16_t *>(bytes.constData());
        for (qsizetype i = 0; i < bytes.size() / 2; ++i)
            out.push_back(s[i] / 32768.0f);
        return out;
    }
    SF_INFO info{};
    SNDFILE *f = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    if (!f)
        return out;
    out.resize(static_cast<std::size_t>(info.frames));
    sf_readf_float(f, out.data(), info.frames);
    sf_close(f);
    return out;
}

inline std::vector<float> resample(const std::vector<float> &in, double from, double to)
{
    std::vector<float> out(static_cast<std::size_t>(in.size() * to / from) + 16);
    std::size_t made = 0;
    soxr_oneshot(from, to, 1, in.data(), in.size(), nullptr, out.data(), out.size(), &made,
                 nullptr, nullptr, nullptr);
    out.resize(made);
    return out;
}

// Writes 16-bit PCM WAV from per-channel float tracks (all of `frames` length).
inline bool writeWav(const QString &path, int rate, const std::vector<std::vector<float>> &channels)
{
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = static_cast<int>(channels.size());
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE *f = sf_open(QFile::encodeName(path).constData(), SFM_WRITE, &info);
    if (!f)
        return false;
    const std::size_t frames = channels.front().size();
    std::vector<float> interleaved(frames * channels.size());
    for (std::size_t i = 0; i < frames; ++i)
        for (std::size_t c = 0; c < channels.size(); ++c)
            interleaved[i * channels.size() + c] = channels[c][i];
    sf_writef_float(f, interleaved.data(), static_cast<sf_count_t>(frames));
    sf_close(f);
    return true;
}

// Copies `clip` into `track` from second `at` on.
inline void place(std::vector<float> &track, const std::vector<float> &clip, double at, int rate)
{
    const auto start = static_cast<std::size_t>(at * rate);
    for (std::size_t i = 0; i < clip.size() && start + i < track.size(); ++i)
        track[start + i] = clip[i];
}

// A `seconds`-long track at `rate`, a sine of `amplitude` in each [from, to) span of seconds.
inline std::vector<float> track(int seconds, std::initializer_list<std::pair<int, int>> spans, float amplitude = 0.4f,
                                int rate = 8000)
{
    std::vector<float> t(static_cast<std::size_t>(seconds) * rate, 0.0f);
    for (auto [from, to] : spans)
        for (std::size_t i = std::size_t(from) * rate; i < std::size_t(to) * rate; ++i)
            t[i] = amplitude * std::sin(static_cast<float>(i) * 0.3f);
    return t;
}

// What one RecordingTranscriber::transcribe() run reports.
struct Run
{
    QList<RecordingProgress> progress;
    std::optional<RecordingTranscriber::Result> result;

    auto onProgress() { return [this](const RecordingProgress &p) { progress << p; }; }
    auto onResult() { return [this](const RecordingTranscriber::Result &r) { result = r; }; }
};

} // namespace SpeechTestAudio
