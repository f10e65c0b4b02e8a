#include "review/RecordingActivity.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtEndian>

#include <algorithm>
#include <cmath>

namespace {

constexpr double kWindow = 0.02;
constexpr float kAboveQuiet = 15.0f;
constexpr float kFloor = -55.0f;
constexpr double kJoin = 0.5;
constexpr double kShortest = 0.25;

float decibels(double sumSquares, qint64 count)
{
    const double rms = count > 0 ? std::sqrt(sumSquares / double(count)) / 32768.0 : 0.0;
    return rms > 1e-6 ? float(20.0 * std::log10(rms)) : -120.0f;
}

QDateTime stampTime(const QString &fileName)
{
    // "meeting_2026-11-21_14-05-09…"
    return QDateTime::fromString(fileName.mid(8, 19), QStringLiteral("yyyy-MM-dd_HH-mm-ss"));
}

} // namespace

QList<SessionReview::Span> RecordingActivity::spans(const QList<float> &levels, double window)
{
    QList<SessionReview::Span> out;
    if (levels.isEmpty())
        return out;
    QList<float> sorted = levels;
    std::sort(sorted.begin(), sorted.end());
    const float quiet = sorted.at(sorted.size() / 10);
    const float threshold = std::max(quiet + kAboveQuiet, kFloor);
    for (qsizetype i = 0; i < levels.size(); ++i) {
        if (levels.at(i) < threshold)
            continue;
        const double start = double(i) * window;
        if (!out.isEmpty() && start - out.last().end < kJoin)
            out.last().end = start + window;
        else
            out << SessionReview::Span{start, start + window};
    }
    out.removeIf([](const SessionReview::Span &span) { return span.seconds() < kShortest; });
    return out;
}

std::optional<RecordingActivity::Spans> RecordingActivity::read(const QString &wavPath, QString *error)
{
    const auto fail = [error](const QString &why) {
        if (error)
            *error = why;
        return std::nullopt;
    };
    QFile file(wavPath);
    if (!file.open(QIODevice::ReadOnly))
        return fail(file.errorString());
    const QByteArray head = file.read(12);
    if (head.size() < 12 || !head.startsWith("RIFF") || head.mid(8, 4) != "WAVE")
        return fail(tr("not a WAV file"));
    int channels = 0;
    int rate = 0;
    int bits = 0;
    qint64 dataBytes = -1;
    while (dataBytes < 0) {
        const QByteArray chunk = file.read(8);
        if (chunk.size() < 8)
            return fail(tr("no audio in the file"));
        const quint32 size = qFromLittleEndian<quint32>(chunk.constData() + 4);
        if (chunk.startsWith("fmt ")) {
            const QByteArray format = file.read(size + (size & 1));
            if (format.size() < 16 || qFromLittleEndian<quint16>(format.constData()) != 1)
                return fail(tr("not PCM audio"));
            channels = qFromLittleEndian<quint16>(format.constData() + 2);
            rate = int(qFromLittleEndian<quint32>(format.constData() + 4));
            bits = qFromLittleEndian<quint16>(format.constData() + 14);
        } else if (chunk.startsWith("data")) {
            dataBytes = std::min<qint64>(size, file.size() - file.pos());   // a file cut short counts as far as it goes
        } else if (!file.seek(file.pos() + size + (size & 1))) {
            return fail(tr("no audio in the file"));
        }
    }
    if (channels != 2 || bits != 16 || rate <= 0)
        return fail(tr("not a 16-bit stereo recording"));

    const qint64 windowFrames = std::max<qint64>(1, qint64(rate * kWindow));
    QList<float> left;
    QList<float> right;
    qint64 remaining = dataBytes / 4;
    while (remaining > 0) {
        const qint64 frames = std::min(windowFrames, remaining);
        const QByteArray block = file.read(frames * 4);
        if (block.size() < frames * 4)
            break;
        double sumLeft = 0;
        double sumRight = 0;
        for (qint64 f = 0; f < frames; ++f) {
            const double l = qFromLittleEndian<qint16>(block.constData() + f * 4);
            const double r = qFromLittleEndian<qint16>(block.constData() + f * 4 + 2);
            sumLeft += l * l;
            sumRight += r * r;
        }
        left << decibels(sumLeft, frames);
        right << decibels(sumRight, frames);
        remaining -= frames;
    }
    const double window = double(windowFrames) / rate;
    return Spans{spans(left, window), spans(right, window), double(left.size()) * window};
}

QString RecordingActivity::recordingFor(const QString &eventsPath)
{
    const QFileInfo events(eventsPath);
    const QString name = events.fileName();
    const QString stamp = name.left(name.indexOf(QLatin1Char('.')));   // "meeting_<stamp>"
    const QString same = events.dir().filePath(stamp + QStringLiteral(".wav"));
    if (QFileInfo::exists(same))
        return same;
    const QDateTime started = stampTime(name);
    if (!started.isValid())
        return {};
    for (const QFileInfo &wav : events.dir().entryInfoList({QStringLiteral("meeting_*.wav")}, QDir::Files, QDir::Name)) {
        const QDateTime at = stampTime(wav.fileName());
        if (at.isValid() && started.secsTo(at) >= 0 && started.secsTo(at) <= 30 && wav.completeBaseName().size() == 27)
            return wav.absoluteFilePath();   // not a "-2" continuation
    }
    return {};
}
