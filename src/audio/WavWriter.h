#pragma once

#include "common/Result.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

// Streams float audio into 16-bit PCM RIFF/WAVE files. The two length fields of the header
// are rewritten after every second of audio (or a shorter interval the owner sets) and at
// close, so a file cut short by a crash stays playable up to about its last second.
//
// A RIFF file cannot hold more than 4 GiB; when the next block would not fit, the writer
// finishes the file and goes on in "<name>-2.wav", then "<name>-3.wav" and so on.
// Every write is checked, the header updates and the final close included. The first failure
// (a full disk, a size limit) ends the writing: the header is set to the samples that reached
// the file, the file is closed, and error() tells why, so the owner never calls it complete.
// Not thread-safe: its owner calls it from one thread.
class WavWriter
{
public:
    // The most sample bytes one file can hold: the RIFF size (36 + data) must fit 32 bits.
    static constexpr qint64 maxDataBytesPerFile = qint64(0xFFFFFFFFu) - 36;

    // Creates (replacing) the file and writes a header with no data; on failure, the system's reason.
    static Result<std::unique_ptr<WavWriter>> create(const QString &path, int sampleRate, int channels);
    ~WavWriter();

    // Appends `frames` frames of non-interleaved float channels. File channel c takes buffer
    // channel min(bufferChannels - 1, c), so a mono buffer fills every file channel.
    void write(const float *const *channelData, int bufferChannels, int frames);
    // Updates the header, syncs and closes the file. Nothing is written afterwards.
    void close();
    // Why the file is not complete (the first write that failed); empty while all is well.
    QString error() const { return m_error; }

    // Data bytes between header rewrites; at least one frame.
    void setHeaderUpdateInterval(qint64 bytes);
    qint64 headerUpdateInterval() const { return m_headerUpdateInterval; }
    // Data bytes after which the writer goes on in the next file (tests use a small limit).
    void setMaxDataBytes(qint64 bytes);

    // The file being written (the first one until a limit is reached).
    QString path() const { return m_file.fileName(); }
    // Every file this writer has started, in order.
    QStringList paths() const { return m_paths; }
    int sampleRate() const { return m_sampleRate; }
    int channels() const { return m_channels; }
    // Bytes of sample data in the current file.
    qint64 dataBytes() const { return m_dataBytes; }

    // The canonical 44-byte header for the given sizes.
    static QByteArray header(int sampleRate, int channels, qint64 dataBytes);
    // "<dir>/meeting_x.wav", 3 -> "<dir>/meeting_x-3.wav".
    static QString continuationPath(const QString &firstPath, int number);

private:
    WavWriter(const QString &path, int sampleRate, int channels);
    Result<void> openFile(const QString &path);
    // Finishes the current file and opens the next; false (and the writer closed) on failure.
    bool startNextFile();
    void writeFrames(const float *const *channelData, int bufferChannels, int from, int frames);
    bool updateHeader();
    // Records the first failure, keeps the file playable up to what was written, closes it.
    void fail(const QString &why);

    QFile m_file;
    QString m_firstPath;
    QStringList m_paths;
    int m_sampleRate;
    int m_channels;
    qint64 m_dataBytes = 0;
    qint64 m_bytesSinceHeaderUpdate = 0;
    qint64 m_headerUpdateInterval;
    qint64 m_maxDataBytes;
    bool m_closed = false;
    QString m_error;
    QByteArray m_block;   // reused interleaving buffer
};
