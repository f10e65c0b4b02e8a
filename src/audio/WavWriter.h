#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

#include <memory>
#include <optional>

// Streams float audio into a 16-bit PCM RIFF/WAVE file. The two length fields of the header
// are rewritten every 384000 data bytes, so a file cut short by a crash stays playable up to
// about its last two seconds. Not thread-safe: its owner calls it from one thread.
class WavWriter
{
public:
    static constexpr qint64 headerUpdateInterval = 384000;

    // Creates (replacing) the file and writes a header with no data. Nothing on failure, with
    // the reason in *error.
    static std::unique_ptr<WavWriter> create(const QString &path, int sampleRate, int channels,
                                             QString *error = nullptr);
    ~WavWriter();

    // Appends `frames` frames of non-interleaved float channels. File channel c takes buffer
    // channel min(bufferChannels - 1, c), so a mono buffer fills every file channel.
    void write(const float *const *channelData, int bufferChannels, int frames);
    // Updates the header and closes the file. Nothing is written afterwards.
    void close();

    QString path() const { return m_file.fileName(); }
    int sampleRate() const { return m_sampleRate; }
    int channels() const { return m_channels; }
    qint64 dataBytes() const { return m_dataBytes; }

    // The canonical 44-byte header for the given sizes.
    static QByteArray header(int sampleRate, int channels, qint64 dataBytes);

private:
    WavWriter(const QString &path, int sampleRate, int channels);
    void updateHeader();

    QFile m_file;
    int m_sampleRate;
    int m_channels;
    qint64 m_dataBytes = 0;
    qint64 m_bytesSinceHeaderUpdate = 0;
    bool m_closed = false;
    QByteArray m_block;   // reused interleaving buffer
};
