#include "audio/WavWriter.h"

#include "audio/AudioLogging.h"

#include <QtEndian>

#include <cerrno>

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace {
void putU32(char *at, quint64 value)
{
    if (value > std::numeric_limits<quint32>::max())
        qFatal("WavWriter: a header field does not fit 32 bits");
    qToLittleEndian<quint32>(quint32(value), at);
}

void putU16(char *at, quint64 value)
{
    if (value > std::numeric_limits<quint16>::max())
        qFatal("WavWriter: a header field does not fit 16 bits");
    qToLittleEndian<quint16>(quint16(value), at);
}
} // namespace

QByteArray WavWriter::header(int sampleRate, int channels, qint64 dataBytes)
{
    if (sampleRate < 0 || channels < 0 || dataBytes < 0)
        qFatal("WavWriter: negative header field");
    QByteArray h(44, '\0');
    char *p = h.data();
    std::memcpy(p, "RIFF", 4);
    putU32(p + 4, quint64(36) + quint64(dataBytes));
    std::memcpy(p + 8, "WAVE", 4);
    std::memcpy(p + 12, "fmt ", 4);
    putU32(p + 16, 16);
    putU16(p + 20, 1);
    putU16(p + 22, quint64(channels));
    putU32(p + 24, quint64(sampleRate));
    putU32(p + 28, quint64(sampleRate) * quint64(channels) * 2);
    putU16(p + 32, quint64(channels) * 2);
    putU16(p + 34, 16);
    std::memcpy(p + 36, "data", 4);
    putU32(p + 40, quint64(dataBytes));
    return h;
}

QString WavWriter::continuationPath(const QString &firstPath, int number)
{
    QString base = firstPath;
    if (base.endsWith(QStringLiteral(".wav"), Qt::CaseInsensitive))
        base.chop(4);
    return base + QLatin1Char('-') + QString::number(number) + QStringLiteral(".wav");
}

WavWriter::WavWriter(const QString &path, int sampleRate, int channels)
    : m_firstPath(path)
    , m_sampleRate(sampleRate)
    , m_channels(channels)
    , m_headerUpdateInterval(std::max<qint64>(1, qint64(sampleRate) * channels * 2))
    , m_maxDataBytes(maxDataBytesPerFile)
{
}

Result<std::unique_ptr<WavWriter>> WavWriter::create(const QString &path, int sampleRate, int channels)
{
    std::unique_ptr<WavWriter> w(new WavWriter(path, sampleRate, channels));
    if (auto opened = w->openFile(path); !opened.ok())
        return Result<std::unique_ptr<WavWriter>>::failure(opened.error());
    return w;
}

Result<void> WavWriter::openFile(const QString &path)
{
    const QByteArray h = header(m_sampleRate, m_channels, 0);
    m_file.setFileName(path);
    // Unbuffered: every write reaches the file system at once, so its failure is seen here.
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered) || m_file.write(h) != h.size()) {
        const QString error = m_file.errorString();
        m_file.close();
        return Result<void>::failure(error);
    }
    m_paths << path;
    m_dataBytes = 0;
    m_bytesSinceHeaderUpdate = 0;
    return {};
}

WavWriter::~WavWriter()
{
    if (!m_closed)
        close();
}

void WavWriter::setHeaderUpdateInterval(qint64 bytes)
{
    m_headerUpdateInterval = std::max<qint64>(bytes, qint64(m_channels) * 2);
}

void WavWriter::setMaxDataBytes(qint64 bytes)
{
    const qint64 frameBytes = qint64(m_channels) * 2;
    bytes = std::clamp<qint64>(bytes, frameBytes, maxDataBytesPerFile);
    m_maxDataBytes = bytes - bytes % frameBytes;
}

void WavWriter::write(const float *const *channelData, int bufferChannels, int frames)
{
    if (m_closed || !channelData || frames <= 0 || bufferChannels <= 0)
        return;
    const qint64 frameBytes = qint64(m_channels) * 2;
    int done = 0;
    while (done < frames && !m_closed) {
        const qint64 room = (m_maxDataBytes - m_dataBytes) / frameBytes;
        if (room <= 0) {
            if (!startNextFile())
                return;
            continue;
        }
        const int take = int(std::min<qint64>(frames - done, room));
        writeFrames(channelData, bufferChannels, done, take);
        done += take;
    }
}

void WavWriter::writeFrames(const float *const *channelData, int bufferChannels, int from, int frames)
{
    const qint64 bytes = qint64(frames) * m_channels * 2;
    m_block.fill('\0', bytes);
    auto *out = reinterpret_cast<qint16 *>(m_block.data());
    for (int c = 0; c < m_channels; ++c) {
        const float *src = channelData[std::min(bufferChannels - 1, c)];
        if (!src)
            continue;
        src += from;
        for (int i = 0; i < frames; ++i) {
            const float v = src[i];
            const float scaled = v < 1.0f ? std::max(v, -1.0f) * 32767.0f : 32767.0f;
            out[qsizetype(i) * m_channels + c] = qToLittleEndian<qint16>(qint16(scaled));
        }
    }
    qint64 written = 0;
    qint64 step = 0;
    errno = 0;
    while (written < bytes && (step = m_file.write(m_block.constData() + written, bytes - written)) > 0)
        written += step;   // a short write is followed by one that fails with the reason
    if (written != bytes) {
        // The whole frames that reached the file stay; the header says so.
        const qint64 frameBytes = qint64(m_channels) * 2;
        m_dataBytes += written / frameBytes * frameBytes;
        fail(errno != 0 ? qt_error_string(errno) : m_file.errorString());
        return;
    }
    m_dataBytes += bytes;
    m_bytesSinceHeaderUpdate += bytes;
    if (m_bytesSinceHeaderUpdate >= m_headerUpdateInterval) {
        m_bytesSinceHeaderUpdate = 0;
        if (!updateHeader())
            fail(m_file.errorString());
    }
}

void WavWriter::fail(const QString &why)
{
    if (m_closed)
        return;
    m_error = why.isEmpty() ? QStringLiteral("write failed") : why;
    qCWarning(lcAudio, "[Ketterbloom] recording stopped: could not write %s: %s", qUtf8Printable(m_file.fileName()),
              qUtf8Printable(m_error));
    updateHeader();   // within the bytes already there: needs no new space
    m_file.close();
    m_closed = true;
}

bool WavWriter::startNextFile()
{
    if (!updateHeader()) {
        fail(m_file.errorString());
        return false;
    }
    if (::fsync(m_file.handle()) != 0) {
        fail(qt_error_string(errno));
        return false;
    }
    m_file.close();
    const QString next = continuationPath(m_firstPath, int(m_paths.size()) + 1);
    if (auto opened = openFile(next); !opened.ok()) {
        qCWarning(lcAudio, "[Ketterbloom] could not continue the recording in %s: %s", qUtf8Printable(next),
                  qUtf8Printable(opened.error()));
        m_error = opened.error();
        m_closed = true;
        return false;
    }
    qCInfo(lcAudio, "[Ketterbloom] recording continues in %s", qUtf8Printable(next));
    return true;
}

bool WavWriter::updateHeader()
{
    char riff[4];
    char data[4];
    putU32(riff, quint64(36) + quint64(m_dataBytes));
    putU32(data, quint64(m_dataBytes));
    const qint64 offset = m_file.pos();
    const bool ok = m_file.seek(4) && m_file.write(riff, 4) == 4 && m_file.seek(40) && m_file.write(data, 4) == 4;
    return m_file.seek(offset) && ok;
}

void WavWriter::close()
{
    if (m_closed)
        return;
    // The last samples and the header must be on the disk before the file counts as complete.
    if (!updateHeader()) {
        fail(m_file.errorString());
        return;
    }
    if (::fsync(m_file.handle()) != 0) {
        fail(qt_error_string(errno));
        return;
    }
    m_file.close();
    if (m_file.error() != QFileDevice::NoError)
        m_error = m_file.errorString();
    m_closed = true;
}
