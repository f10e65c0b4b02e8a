#include "audio/RecordingPlayer.h"

#include "audio/AudioLogging.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>

#include <sndfile.h>
#include <soxr.h>

#include <algorithm>
#include <cstring>

namespace {

// Frames read from the file per step, at the file's rate.
constexpr int readFrames = 1024;

} // namespace

RecordingPlayer::RecordingPlayer(QObject *parent)
    : QObject(parent)
{
    m_thread.setObjectName(QStringLiteral("kb-recording"));
    m_context.moveToThread(&m_thread);
    m_timer.setInterval(tickMs);
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.moveToThread(&m_thread);
    connect(&m_timer, &QTimer::timeout, &m_context, [this] { tick(); });
    m_thread.start();
}

RecordingPlayer::~RecordingPlayer()
{
    stop();
    m_thread.quit();
    m_thread.wait();
}

Result<void> RecordingPlayer::start(const QString &path, bool aloud)
{
    stop();
    SF_INFO info{};
    SNDFILE *file = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    if (!file)
        return Result<void>::failure(
            tr("The recording %1 can't be played (%2).").arg(path, QString::fromUtf8(sf_strerror(nullptr))));
    if (info.channels <= 0 || info.samplerate <= 0) {
        sf_close(file);
        return Result<void>::failure(tr("The recording %1 has no audio.").arg(path));
    }
    m_file = file;
    m_fileChannels = info.channels;
    m_fileRate = info.samplerate;
    m_durationSeconds = double(info.frames) / info.samplerate;
    if (info.samplerate != outputRate) {
        soxr_error_t error = nullptr;
        const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
        m_soxr = soxr_create(m_fileRate, outputRate, 1, &error, nullptr, &quality, nullptr);
        if (!m_soxr) {
            closeFile();
            return Result<void>::failure(
                tr("The recording %1 can't be converted (%2).").arg(path, QString::fromUtf8(error)));
        }
    }
    m_interleaved.assign(size_t(readFrames) * size_t(m_fileChannels), 0.0f);
    m_mono.assign(readFrames, 0.0f);
    // One read converts to at most this many output frames (plus the converter's flush).
    const int converted = int(readFrames * outputRate / m_fileRate) + 64;
    m_out.assign(size_t(std::max(converted, maxBlockFrames)), 0.0f);
    m_pending.assign(m_out.size() + size_t(maxBlockFrames), 0.0f);
    m_pendingFrames = 0;
    m_framesDelivered = 0;
    m_fileDone = false;
    m_flushed = false;
    if (m_clockOverride) {
        m_clock = m_clockOverride;
    } else {
        auto timer = std::make_shared<QElapsedTimer>();
        timer->start();
        m_clock = [timer] { return timer->elapsed(); };
    }
    m_playing = true;
    qCInfo(lcAudio, "[Ketterbloom] playing the recording %s as the meeting (%.1f s, %d Hz, %d channels)",
           qUtf8Printable(path), m_durationSeconds, info.samplerate, info.channels);
    QMetaObject::invokeMethod(&m_context, [this, path, aloud] {
        if (aloud) {
            m_aloud = new QProcess(&m_context);
            // paplay's own complaints (no sound server, no output) become one line of ours:
            // the recording still reaches the service without the speakers.
            QProcess *aloudProcess = m_aloud;
            QObject::connect(aloudProcess, &QProcess::finished, aloudProcess, [aloudProcess](int code, QProcess::ExitStatus status) {
                if (status != QProcess::NormalExit || code == 0)
                    return;
                const QString why = QString::fromLocal8Bit(aloudProcess->readAllStandardError()).trimmed().section(QLatin1Char('\n'), -1);
                qCWarning(lcAudio, "The recording is not played to the speakers (%s); it still goes to the service.",
                          qUtf8Printable(why.isEmpty() ? QStringLiteral("paplay exited with code %1").arg(code) : why));
            });
            QObject::connect(aloudProcess, &QProcess::errorOccurred, aloudProcess, [](QProcess::ProcessError error) {
                if (error == QProcess::FailedToStart)
                    qCWarning(lcAudio, "The recording is not played to the speakers (paplay is missing: install pulseaudio-utils); it still goes to the service.");
            });
            m_aloud->start(QStringLiteral("paplay"), {QStringLiteral("--client-name=Ketterbloom"), path});
        }
        m_startMs = m_clock();
        m_timer.start();
    }, Qt::BlockingQueuedConnection);
    return {};
}

void RecordingPlayer::stop()
{
    if (!m_file)
        return;
    m_playing = false;
    QMetaObject::invokeMethod(&m_context, [this] {
        m_timer.stop();
        if (m_aloud) {
            m_aloud->kill();   // our own child, by its handle
            m_aloud->waitForFinished(1000);
            delete m_aloud;
            m_aloud = nullptr;
        }
    }, Qt::BlockingQueuedConnection);
    closeFile();
}

void RecordingPlayer::closeFile()
{
    if (m_soxr) {
        soxr_delete(m_soxr);
        m_soxr = nullptr;
    }
    if (m_file) {
        sf_close(m_file);
        m_file = nullptr;
    }
}

int RecordingPlayer::produce(int frames)
{
    // Converted audio left from the last read goes first.
    int done = std::min(frames, m_pendingFrames);
    std::copy_n(m_pending.begin(), done, m_out.begin());
    std::copy(m_pending.begin() + done, m_pending.begin() + m_pendingFrames, m_pending.begin());
    m_pendingFrames -= done;
    while (done < frames && !m_flushed) {
        sf_count_t got = 0;
        if (!m_fileDone) {
            got = sf_readf_float(m_file, m_interleaved.data(), readFrames);
            if (got <= 0)
                m_fileDone = true;
        }
        for (sf_count_t i = 0; i < got; ++i) {
            float sum = 0.0f;
            for (int c = 0; c < m_fileChannels; ++c)
                sum += m_interleaved[size_t(i) * size_t(m_fileChannels) + size_t(c)];
            m_mono[size_t(i)] = sum / float(m_fileChannels);
        }
        // Straight through at 48 kHz; otherwise through the converter (flushed at the end).
        const float *converted = m_mono.data();
        size_t produced = size_t(std::max<sf_count_t>(got, 0));
        if (m_soxr) {
            produced = 0;
            soxr_process(m_soxr, m_fileDone ? nullptr : m_mono.data(), m_fileDone ? 0 : size_t(got), nullptr,
                         m_out.data() + done, m_out.size() - size_t(done), &produced);
            converted = m_out.data() + done;
            if (m_fileDone && produced == 0)
                m_flushed = true;
        } else if (m_fileDone) {
            m_flushed = true;
        }
        const int take = std::min(int(produced), frames - done);
        if (converted != m_out.data() + done)
            std::copy_n(converted, take, m_out.begin() + done);
        // What this read gave beyond the request waits for the next tick.
        const int extra = int(produced) - take;
        if (extra > 0) {
            std::copy_n(converted + take, extra, m_pending.begin() + m_pendingFrames);
            m_pendingFrames += extra;
        }
        done += take;
        if (m_soxr && done >= frames)
            break;
    }
    return done;
}

void RecordingPlayer::tick()
{
    if (!m_playing)
        return;
    qint64 left = (m_clock() - m_startMs) * outputRate / 1000 - m_framesDelivered;
    while (left > 0) {
        const int wanted = int(std::min<qint64>(left, maxBlockFrames));
        const int n = produce(wanted);
        if (n > 0 && onBlock)
            onBlock(m_out.data(), n);
        m_framesDelivered += n;
        left -= n;
        if (n < wanted) {   // the file is used up
            m_playing = false;
            m_timer.stop();
            qCInfo(lcAudio, "[Ketterbloom] the recording has been played to its end");
            if (onEnded)
                onEnded();
            return;
        }
    }
}
