#include "audio/WavWriter.h"

#include "TestSignals.h"

#include <QtEndian>
#include <QtTest>

#include <cerrno>
#include <csignal>
#include <vector>

#include <sys/resource.h>

namespace {
QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

quint32 u32(const QByteArray &b, int at)
{
    return qFromLittleEndian<quint32>(b.constData() + at);
}

qint16 s16(const QByteArray &b, int at)
{
    return qFromLittleEndian<qint16>(b.constData() + at);
}
} // namespace

class TestWavWriter : public QObject
{
    Q_OBJECT

private slots:
    void init() { QVERIFY(m_dir.isValid()); }

    void closedBeforeAnyWriteIsAnEmptyValidFile()
    {
        const QString path = m_dir.filePath(QStringLiteral("empty.wav"));
        auto w = WavWriter::create(path, 48000, 2).value();
        QVERIFY(w);
        w->close();
        const QByteArray b = readAll(path);
        QCOMPARE(b.size(), 44);
        QCOMPARE(b.left(4), QByteArray("RIFF"));
        QCOMPARE(u32(b, 4), 36u);
        QCOMPARE(b.mid(8, 8), QByteArray("WAVEfmt "));
        QCOMPARE(u32(b, 16), 16u);
        QCOMPARE(qFromLittleEndian<quint16>(b.constData() + 20), quint16(1));
        QCOMPARE(qFromLittleEndian<quint16>(b.constData() + 22), quint16(2));
        QCOMPARE(u32(b, 24), 48000u);
        QCOMPARE(u32(b, 28), 192000u);
        QCOMPARE(qFromLittleEndian<quint16>(b.constData() + 32), quint16(4));
        QCOMPARE(qFromLittleEndian<quint16>(b.constData() + 34), quint16(16));
        QCOMPARE(b.mid(36, 4), QByteArray("data"));
        QCOMPARE(u32(b, 40), 0u);
    }

    void samplesAreScaledClampedAndTruncated()
    {
        const QString path = m_dir.filePath(QStringLiteral("values.wav"));
        auto w = WavWriter::create(path, 48000, 1).value();
        const float v[] = {1.5f, -1.5f, 0.5f, -0.5f, 1.0f, -1.0f, 0.0f};
        const float *ch[] = {v};
        w->write(ch, 1, 7);
        w->close();
        const QByteArray b = readAll(path);
        QCOMPARE(b.size(), 44 + 14);
        const qint16 expected[] = {32767, -32767, 16383, -16383, 32767, -32767, 0};
        for (int i = 0; i < 7; ++i)
            QCOMPARE(s16(b, 44 + 2 * i), expected[i]);
    }

    void monoBufferFillsBothChannelsAndStereoInterleaves()
    {
        const QString path = m_dir.filePath(QStringLiteral("channels.wav"));
        auto w = WavWriter::create(path, 48000, 2).value();
        const float mono[] = {0.25f, -0.25f};
        const float *one[] = {mono};
        w->write(one, 1, 2);
        const float left[] = {0.5f}, right[] = {-0.5f};
        const float *two[] = {left, right};
        w->write(two, 2, 1);
        w->close();
        const QByteArray b = readAll(path);
        QCOMPARE(u32(b, 40), 12u);
        const qint16 expected[] = {8191, 8191, -8191, -8191, 16383, -16383};
        for (int i = 0; i < 6; ++i)
            QCOMPARE(s16(b, 44 + 2 * i), expected[i]);
    }

    // The header is rewritten after every second of audio (192000 bytes at 48 kHz stereo), so a
    // file that is never closed still says how much it holds; another reader accepts it.
    void headerIsCurrentWithoutCloseAfterEachSecond()
    {
        const QString path = m_dir.filePath(QStringLiteral("interrupted.wav"));
        auto w = WavWriter::create(path, 48000, 2).value();
        QCOMPARE(w->headerUpdateInterval(), qint64(192000));
        std::vector<float> left(48000, 0.1f), right(48000, -0.1f);
        const float *ch[] = {left.data(), right.data()};
        w->write(ch, 2, 24000);   // half a second: not yet
        QCOMPARE(u32(readAll(path), 40), 0u);
        w->write(ch, 2, 24000);   // one second: rewritten
        QByteArray b = readAll(path);
        QCOMPARE(u32(b, 40), 192000u);
        QCOMPARE(u32(b, 4), 192036u);
        w->write(ch, 2, 48000);
        b = readAll(path);
        QCOMPARE(u32(b, 40), 384000u);
        QCOMPARE(b.size(), 44 + 384000);
        const auto info = kbtest::soxInfo(path);
        QCOMPARE(info.value(QStringLiteral("rate")), QStringLiteral("48000"));
        QCOMPARE(info.value(QStringLiteral("channels")), QStringLiteral("2"));
        QCOMPARE(info.value(QStringLiteral("bits")), QStringLiteral("16"));
        QCOMPARE(info.value(QStringLiteral("samples")), QStringLiteral("96000"));
        // A shorter step, as the capture engine sets it.
        w->setHeaderUpdateInterval(19200);
        w->write(ch, 2, 4800);
        QCOMPARE(u32(readAll(path), 40), 403200u);
        w.reset();   // the destructor closes
        QCOMPARE(u32(readAll(path), 40), 403200u);
    }

    // A file cannot hold more than 4 GiB: the recording goes on in "-2", "-3"… files, each
    // complete and valid, with nothing lost between them (a small limit stands in for 4 GiB).
    void continuesInNumberedFilesAtTheSizeLimit()
    {
        QCOMPARE(WavWriter::maxDataBytesPerFile, qint64(4294967259));
        QCOMPARE(WavWriter::continuationPath(QStringLiteral("/d/meeting_2026-01-02_10-00-00.wav"), 2),
                 QStringLiteral("/d/meeting_2026-01-02_10-00-00-2.wav"));
        const QString path = m_dir.filePath(QStringLiteral("meeting_long.wav"));
        auto w = WavWriter::create(path, 48000, 2).value();
        w->setMaxDataBytes(1000 * 4 + 2);   // rounded down to whole frames: 1000 frames per file
        std::vector<float> ramp(2500);
        for (size_t i = 0; i < ramp.size(); ++i)
            ramp[i] = (float(i) + 0.5f) / 32767.0f;   // truncates to i
        const float *ch[] = {ramp.data(), ramp.data()};
        w->write(ch, 2, 700);
        const float *rest[] = {ramp.data() + 700, ramp.data() + 700};
        w->write(rest, 2, 1800);
        w->close();
        const QStringList expected{path, m_dir.filePath(QStringLiteral("meeting_long-2.wav")),
                                   m_dir.filePath(QStringLiteral("meeting_long-3.wav"))};
        QCOMPARE(w->paths(), expected);
        int next = 0;
        const int frames[] = {1000, 1000, 500};
        for (int f = 0; f < 3; ++f) {
            const QByteArray b = readAll(expected[f]);
            QCOMPARE(b.size(), 44 + frames[f] * 4);
            QCOMPARE(u32(b, 40), quint32(frames[f] * 4));
            QCOMPARE(kbtest::soxInfo(expected[f]).value(QStringLiteral("samples")), QString::number(frames[f]));
            for (int i = 0; i < frames[f]; ++i, ++next)
                QCOMPARE(s16(b, 44 + 4 * i), qint16(next));
        }
    }

    // A write that does not fit (here a file size limit; a full disk alike) stops the file:
    // error() says why, nothing more is written, and the header covers exactly the whole
    // frames that reached the file, so it stays playable.
    void stopsAtTheFirstFailedWrite()
    {
        const QString path = m_dir.filePath(QStringLiteral("full.wav"));
        auto w = WavWriter::create(path, 48000, 2).value();
        QVERIFY(w);
        std::vector<float> samples(4800, 0.25f);
        const float *channels[1] = {samples.data()};
        w->write(channels, 1, 4800);   // 19,200 bytes
        QVERIFY(w->error().isEmpty());
        {
            std::signal(SIGXFSZ, SIG_IGN);
            rlimit saved{};
            getrlimit(RLIMIT_FSIZE, &saved);
            rlimit lowered = saved;
            lowered.rlim_cur = 44 + 19200 + 1002;   // room for 250 more frames and 2 bytes
            setrlimit(RLIMIT_FSIZE, &lowered);
            w->write(channels, 1, 4800);
            w->write(channels, 1, 4800);
            setrlimit(RLIMIT_FSIZE, &saved);
        }
        QCOMPARE(w->error(), qt_error_string(EFBIG));
        w->write(channels, 1, 4800);
        w->close();
        QCOMPARE(w->error(), qt_error_string(EFBIG));
        const QByteArray b = readAll(path);
        QCOMPARE(u32(b, 40), quint32(19200 + 1000));
        QCOMPARE(u32(b, 4), quint32(36 + 19200 + 1000));
        QVERIFY(b.size() >= 44 + 19200 + 1000);
    }

    void replacesAnExistingFileAndReportsAnUnwritablePath()
    {
        const QString path = m_dir.filePath(QStringLiteral("old.wav"));
        {
            QFile f(path);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(QByteArray(1000, 'x'));
        }
        WavWriter::create(path, 24000, 1).value()->close();
        QCOMPARE(readAll(path).size(), 44);

        const auto failed = WavWriter::create(m_dir.filePath(QStringLiteral("missing/dir/x.wav")), 48000, 2);
        QVERIFY(!failed.ok());
        QVERIFY(!failed.error().isEmpty());
    }

private:
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestWavWriter)
#include "tst_audio_wavwriter.moc"
