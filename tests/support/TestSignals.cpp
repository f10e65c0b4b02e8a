#include "TestSignals.h"

#include "SoundServer.h"

#include <sndfile.h>

#include <QFile>
#include <QtEndian>

#include <cmath>

namespace kbtest {

bool makeTone(const QString &path, double frequency, double seconds, int channels, double amplitude)
{
    return run(QStringLiteral("sox"), {QStringLiteral("-n"), QStringLiteral("-r"), QStringLiteral("48000"),
                                       QStringLiteral("-b"), QStringLiteral("16"), QStringLiteral("-c"),
                                       QString::number(channels), path, QStringLiteral("synth"),
                                       QString::number(seconds), QStringLiteral("sine"), QString::number(frequency),
                                       QStringLiteral("vol"), QString::number(amplitude)})
        .ok();
}

bool makeSilence(const QString &path, double seconds, int channels)
{
    return run(QStringLiteral("sox"), {QStringLiteral("-n"), QStringLiteral("-r"), QStringLiteral("48000"),
                                       QStringLiteral("-b"), QStringLiteral("16"), QStringLiteral("-c"),
                                       QString::number(channels), path, QStringLiteral("trim"), QStringLiteral("0"),
                                       QString::number(seconds)})
        .ok();
}

bool mergeToStereo(const QString &left, const QString &right, const QString &out)
{
    return run(QStringLiteral("sox"), {QStringLiteral("-M"), left, right, out}).ok();
}

bool makeSpeech(const QString &path, const QString &text)
{
    const QString raw = path + QStringLiteral(".espeak.wav");
    if (!run(QStringLiteral("espeak-ng"), {QStringLiteral("-v"), QStringLiteral("en-us+f2"), QStringLiteral("-s"),
                                           QStringLiteral("150"), QStringLiteral("-w"), raw, text})
             .ok())
        return false;
    const bool ok = run(QStringLiteral("sox"), {raw, QStringLiteral("-r"), QStringLiteral("48000"), path}).ok();
    QFile::remove(raw);
    return ok;
}

double goertzelPower(const float *samples, int count, double sampleRate, double frequency)
{
    if (count <= 0)
        return 0.0;
    const double w = 2.0 * M_PI * frequency / sampleRate;
    const double coeff = 2.0 * std::cos(w);
    double s1 = 0.0, s2 = 0.0;
    for (int i = 0; i < count; ++i) {
        const double s0 = samples[i] + coeff * s1 - s2;
        s2 = s1;
        s1 = s0;
    }
    const double power = s1 * s1 + s2 * s2 - coeff * s1 * s2;
    return power / (double(count) * double(count));
}

double toneShare(const std::vector<float> &samples, double sampleRate, double frequency, double other)
{
    const double a = goertzelPower(samples.data(), int(samples.size()), sampleRate, frequency);
    const double b = goertzelPower(samples.data(), int(samples.size()), sampleRate, other);
    return a + b > 0 ? a / (a + b) : 0.0;
}

double rms(const float *samples, int count)
{
    if (count <= 0)
        return 0.0;
    double sum = 0.0;
    for (int i = 0; i < count; ++i)
        sum += double(samples[i]) * samples[i];
    return std::sqrt(sum / count);
}

std::vector<float> pcm16ToFloat(const QByteArray &pcm16le)
{
    std::vector<float> out(size_t(pcm16le.size() / 2));
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = float(qFromLittleEndian<qint16>(pcm16le.constData() + 2 * i)) / 32768.0f;
    return out;
}

std::vector<float> WavData::channel(int c) const
{
    std::vector<float> out;
    if (channels <= 0 || c >= channels)
        return out;
    out.reserve(size_t(frames));
    for (qint64 i = 0; i < frames; ++i)
        out.push_back(samples[size_t(i * channels + c)]);
    return out;
}

WavData readWav(const QString &path)
{
    WavData d;
    SF_INFO info{};
    SNDFILE *f = sf_open(path.toLocal8Bit().constData(), SFM_READ, &info);
    if (!f)
        return d;
    d.sampleRate = info.samplerate;
    d.channels = info.channels;
    d.samples.resize(size_t(info.frames) * size_t(info.channels));
    d.frames = sf_readf_float(f, d.samples.data(), info.frames);
    d.samples.resize(size_t(d.frames) * size_t(info.channels));
    sf_close(f);
    d.ok = true;
    return d;
}

QHash<QString, QString> soxInfo(const QString &path)
{
    QHash<QString, QString> out;
    const QList<QPair<QString, QString>> flags = {{QStringLiteral("rate"), QStringLiteral("-r")},
                                                  {QStringLiteral("channels"), QStringLiteral("-c")},
                                                  {QStringLiteral("bits"), QStringLiteral("-b")},
                                                  {QStringLiteral("samples"), QStringLiteral("-s")},
                                                  {QStringLiteral("encoding"), QStringLiteral("-e")}};
    for (const auto &[key, flag] : flags) {
        const auto r = run(QStringLiteral("soxi"), {flag, path});
        if (!r.ok())
            return {};
        out.insert(key, r.out.trimmed());
    }
    return out;
}

} // namespace kbtest
