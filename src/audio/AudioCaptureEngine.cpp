#include "audio/AudioCaptureEngine.h"

#include "audio/AudioLogging.h"
#include "audio/AudioDeviceManager.h"
#include "audio/MicInput.h"
#include "audio/Pcm16Resampler.h"
#include "audio/RecordingPlayer.h"
#include "audio/StartupTrace.h"
#include "audio/WavWriter.h"

#include <QDateTime>
#include <QDir>
#include <QSemaphore>
#include <QStandardPaths>

#include <algorithm>
#include <chrono>
#include <thread>

namespace {

constexpr int micStreamTimeoutMs = 20000;

QString stalledText()
{
    return AudioCaptureEngine::tr(
        "The microphone didn't start. The interviewer is still heard and answered, but your own answers aren't "
        "transcribed and the .wav archive is off for this session.");
}

QString skippedText()
{
    return AudioCaptureEngine::tr(
        "Running on meeting audio only — this computer wouldn't hand over the microphone earlier, so your own answers "
        "aren't transcribed.");
}

struct MicStartBox
{
    QSemaphore done;
    Result<void> started;
};

} // namespace

AudioCaptureEngine::AudioCaptureEngine(QObject *parent)
    : QObject(parent)
{
    m_writeThread.setObjectName(QStringLiteral("kb-wav"));
    m_writeContext.moveToThread(&m_writeThread);
    m_drainTimer.setInterval(lineTickMs);
    m_drainTimer.moveToThread(&m_writeThread);
    connect(&m_drainTimer, &QTimer::timeout, &m_writeContext, [this] { lineTick(); });
    m_writeThread.start();

    m_watchThread.setObjectName(QStringLiteral("kb-audio-watch"));
    m_watchContext.moveToThread(&m_watchThread);
    m_checkTimer.setSingleShot(true);
    m_checkTimer.moveToThread(&m_watchThread);
    connect(&m_checkTimer, &QTimer::timeout, &m_watchContext, [this] { runCheck(); });
    m_watchThread.start();
    m_clock.start();
}

AudioCaptureEngine::~AudioCaptureEngine()
{
    stop();
    QMetaObject::invokeMethod(&m_watchContext, [this] { m_checkTimer.stop(); }, Qt::BlockingQueuedConnection);
    m_watchThread.quit();
    m_watchThread.wait();
    m_writeThread.quit();
    m_writeThread.wait();
}

CaptureHealth AudioCaptureEngine::health() const
{
    std::lock_guard guard(m_control);
    return m_health;
}

void AudioCaptureEngine::requestMicAccess(std::function<void(bool granted)> completion)
{
    postToOwner([completion = std::move(completion)] {
        if (completion)
            completion(true);
    });
}

std::optional<QString> AudioCaptureEngine::recordingPath() const
{
    std::lock_guard guard(m_control);
    return m_recordingPath;
}

std::optional<QString> AudioCaptureEngine::recordingError() const
{
    std::lock_guard guard(m_recordErrorLock);
    return m_recordError;
}

void AudioCaptureEngine::checkRecordingWrites()
{
    if (!m_drainWriter || m_drainWriter->error().isEmpty())
        return;
    const QString path = m_drainWriter->path();
    const QString error = m_drainWriter->error();
    {
        std::lock_guard guard(m_recordErrorLock);
        if (m_recordError)
            return;
        m_recordError = error;
    }
    postToOwner([this, path, error] {
        if (onRecordingFailed)
            onRecordingFailed(path, error);
    });
}

Result<void> AudioCaptureEngine::start(const CaptureSource &source, StreamSource streamSource, bool record)
{
    std::lock_guard guard(m_control);
    if (m_running)
        return {};
    m_isRecording = record;
    m_meetingFIFO.clear();
    {
        const std::vector<float> preroll(meetingPrerollFrames, 0.0f);
        m_meetingFIFO.push(preroll.data(), meetingPrerollFrames);
    }
    m_meetingPeak = 0.0f;
    m_lastLevelPostMs = -1000000;
    m_micExpected = false;
    m_micUp = false;
    m_meetingUp = false;
    m_archiveClock = ArchiveClock::awaitingMic;
    m_micSource.clear();
    m_micName.clear();
    Result<void> started;
    m_usingRecording = false;
    if (const auto *tap = std::get_if<SystemTapSource>(&source)) {
        m_usingTap = true;
        started = startTapMode(*tap, streamSource);
    } else if (const auto *recording = std::get_if<RecordingFileSource>(&source)) {
        m_usingTap = false;
        m_usingRecording = true;
        started = startRecordingMode(*recording);
    } else {
        m_usingTap = false;
        started = startDeviceMode(std::get<DeviceChannelsSource>(source), streamSource);
    }
    if (!started.ok()) {
        releaseSession();
        return started;
    }
    m_running = true;
    m_meetingUp = true;
    m_health = CaptureHealth{true, true, true, m_micName};
    QMetaObject::invokeMethod(&m_writeContext, [this] {
        m_silentLineNs = 0;
        m_drainTimer.start();
    }, Qt::BlockingQueuedConnection);
    // A recording has nothing to lose or reattach: no health checks.
    if (!m_usingRecording) {
        QMetaObject::invokeMethod(&m_watchContext, [this] {
            m_retryStep = 0;
            scheduleCheck(healthyCheckMs);
        }, Qt::QueuedConnection);
    }
    return {};
}

Result<void> AudioCaptureEngine::startRecordingMode(const RecordingFileSource &source)
{
    // The file alone is the meeting; there is no microphone to hear or to transcribe.
    m_streamSource = int(StreamSource::meetingOnly);
    m_deviceChannels = 1;
    prepareConverters();
    if (auto opened = openRecording(); !opened.ok())
        return opened;
    // The file clocks the archive, as the microphone does otherwise.
    m_archiveClock = ArchiveClock::micFeeds;
    if (!m_player) {
        m_player = std::make_unique<RecordingPlayer>();
        m_player->onBlock = [this](const float *samples, int frames) { handleRecordingBlock(samples, frames); };
        m_player->onEnded = [this] {
            if (m_silenceAfterRecording)
                m_meetingUp = false;   // the writer thread's silent line takes over
            postToOwner([this] {
                if (onRecordingEnded)
                    onRecordingEnded();
            });
        };
    }
    m_silenceAfterRecording = source.silenceAfterEnd;
    m_player->setClock(m_recordingClock);
    return m_player->start(source.path, source.playAloud);
}

Result<void> AudioCaptureEngine::openRecording()
{
    m_recWriter.reset();
    m_recordingPath.reset();
    m_recordingOpen = false;
    {
        std::lock_guard guard(m_recordErrorLock);
        m_recordError.reset();
    }
    if (!m_isRecording)
        return {};
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) + QStringLiteral("/Ketterbloom");
    if (!QDir().mkpath(folder))
        return Result<void>::failure(tr("Could not create the folder %1.").arg(folder));
    const QString path = folder + QStringLiteral("/meeting_")
        + QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd_HH-mm-ss")) + QStringLiteral(".wav");
    auto writer = WavWriter::create(path, recordRate, recordChannels);
    if (!writer.ok())
        return Result<void>::failure(tr("Could not create the recording %1 (%2).").arg(path, writer.error()));
    m_recWriter = std::move(writer).value();
    m_recordingPath = path;
    m_recordFIFO.clear();
    // Small header steps: a crash loses at most a tenth of a second more than the last drain.
    m_recWriter->setHeaderUpdateInterval(qint64(recordRate) * recordChannels * 2 / 10);
    QMetaObject::invokeMethod(&m_writeContext, [this, writer = m_recWriter] { m_drainWriter = writer; },
                              Qt::BlockingQueuedConnection);
    // The archive keeps wall-clock time from here; the microphone's first block takes over.
    m_archiveClock = ArchiveClock::awaitingMic;
    m_archiveClockNs = std::chrono::duration_cast<std::chrono::nanoseconds>(
                           std::chrono::steady_clock::now().time_since_epoch())
                           .count();
    m_recordingOpen = true;
    return {};
}

void AudioCaptureEngine::prepareConverters()
{
    m_converterAPIFromMicRate = std::make_unique<Pcm16Resampler>(double(MicInput::sampleRate));
    m_converterAPIFrom48 = std::make_unique<Pcm16Resampler>(48000.0);
    prepareMicBuffers(m_deviceChannels);
}

void AudioCaptureEngine::prepareMicBuffers(int channels)
{
    m_deviceChannels = channels;
    m_block.assign(size_t(micBlockFrames) * size_t(channels), 0.0f);
    m_blockFill = 0;
    m_meetingDeficit = 0;
    m_micMono.assign(micBlockFrames, 0.0f);
    m_meetingMono.assign(micBlockFrames, 0.0f);
    m_mixMono.assign(micBlockFrames, 0.0f);
    m_stereoBlock.assign(size_t(micBlockFrames) * recordChannels, 0.0f);
    m_gapBlock.assign(size_t(micBlockFrames) * recordChannels, 0.0f);
}

void AudioCaptureEngine::attachMicCallbacks(MicInput &mic)
{
    mic.onFrames = [this](const float *interleaved, int frames) { onMicFrames(interleaved, frames); };
    mic.onLost = [this] {
        qCWarning(lcAudio, "[Ketterbloom] the microphone stream ended");
        noteTrouble();
    };
}

Result<void> AudioCaptureEngine::startDeviceMode(const DeviceChannelsSource &source, StreamSource streamSource)
{
    std::optional<AudioInputDevice> device;
    if (!source.deviceUID.isEmpty())
        device = AudioDeviceManager::device(source.deviceUID);
    if (!device)
        device = AudioDeviceManager::defaultInputDevice();
    if (!device)
        return Result<void>::failure(describe(EngineError::noDevice));
    auto mic = std::make_shared<MicInput>();
    if (!mic->bind(device->uid).ok())
        return Result<void>::failure(describe(EngineError::noDevice));
    const int channels = mic->channelCount();
    if (channels <= 0)
        return Result<void>::failure(describe(EngineError::badFormat));
    m_deviceChannels = channels;
    m_micChannel = std::min(channels - 1, std::max(source.micChannel, 0));
    m_meetingChannel.reset();
    if (source.meetingChannel)
        m_meetingChannel = std::min(channels - 1, std::max(*source.meetingChannel, 0));
    if (streamSource == StreamSource::meetingOnly && !m_meetingChannel)
        streamSource = StreamSource::micOnly;
    m_streamSource = int(streamSource);
    prepareConverters();
    if (auto opened = openRecording(); !opened.ok())
        return opened;
    attachMicCallbacks(*mic);
    m_mic = mic;
    if (auto started = mic->startStream(micStreamTimeoutMs); !started.ok()) {
        m_mic.reset();
        return Result<void>::failure(tr("The microphone couldn't be opened (%1).").arg(started.error()));
    }
    m_micExpected = true;
    m_micUp = true;
    m_micSource = device->uid;
    m_micName = mic->description();
    m_micChannelWanted = source.micChannel;
    return {};
}

Result<void> AudioCaptureEngine::startTapMode(const SystemTapSource &source, StreamSource streamSource)
{
    StartupTrace::begin(QStringLiteral("tap mode"));
    std::optional<AudioInputDevice> device;
    if (source.micDeviceUID && !source.micDeviceUID->isEmpty())
        device = AudioDeviceManager::device(*source.micDeviceUID);
    if (!device)
        device = AudioDeviceManager::defaultInputDevice();
    if (!device) {
        StartupTrace::step(QStringLiteral("no input device"));
        return Result<void>::failure(describe(EngineError::noDevice));
    }
    StartupTrace::step(QStringLiteral("chose mic"), device->name);

    auto mic = std::make_shared<MicInput>();
    if (auto bound = mic->bind(device->uid); !bound.ok()) {
        StartupTrace::step(QStringLiteral("FAILED bind mic"), bound.error());
        return Result<void>::failure(describe(EngineError::noDevice));
    }
    StartupTrace::step(QStringLiteral("bound mic"));
    const int channels = mic->channelCount();
    StartupTrace::step(QStringLiteral("read mic format"),
                       QString::number(MicInput::sampleRate) + QStringLiteral(" Hz, ") + QString::number(channels)
                           + QStringLiteral(" ch"));
    if (channels <= 0)
        return Result<void>::failure(describe(EngineError::badFormat));
    m_deviceChannels = channels;
    m_micChannel = std::min(channels - 1, std::max(source.micChannel, 0));
    m_meetingChannel.reset();
    m_streamSource = int(streamSource);
    prepareConverters();
    StartupTrace::step(QStringLiteral("prepared formats"));
    if (auto opened = openRecording(); !opened.ok())
        return opened;

    m_tap.onAudio = [this](const float *samples, int frames) { handleTapAudio(samples, frames); };
    m_tap.onInterrupted = [this] { noteTrouble(); };
    m_tapTarget = source.target;
    if (auto tapped = m_tap.start(source.target); !tapped.ok()) {
        StartupTrace::step(QStringLiteral("FAILED create tap"), tapped.error().description());
        return Result<void>::failure(tapped.error().description());
    }
    StartupTrace::step(QStringLiteral("tap running"));
    if (!m_tap.format()) {
        m_tap.cleanUp();
        return Result<void>::failure(TapError{TapError::Kind::formatUnavailable, {}}.description());
    }

    if (m_micEngineUnusable) {
        m_micIsStalled = true;
        StartupTrace::step(QStringLiteral("skipping mic engine — it stalled earlier this run"));
        // The session runs on the tap alone: the meeting goes to the model, and no archive
        // is kept that could only ever hold silence on one side.
        m_streamSource = int(StreamSource::meetingOnly);
        closeRecording();
        m_recordingPath.reset();
        postToOwner([this] {
            if (onMicUnavailable)
                onMicUnavailable(skippedText());
        });
        return {};
    }

    attachMicCallbacks(*mic);
    m_mic = mic;
    m_micSource = device->uid;
    m_micName = mic->description();
    m_micChannelWanted = source.micChannel;
    auto box = std::make_shared<MicStartBox>();
    const int delayMs = m_micStartDelayMs;
    std::thread([box, mic, delayMs] {
        if (delayMs > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
        box->started = mic->startStream(micStreamTimeoutMs);
        box->done.release();
    }).detach();

    if (!box->done.tryAcquire(1, m_micDeadlineMs)) {
        m_micEngineUnusable = true;
        mic->setEnabled(false);
        m_stalledMic = std::exchange(m_mic, nullptr);
        StartupTrace::step(QStringLiteral("MIC ENGINE STALLED — continuing on meeting audio only"));
        fallBackToMeetingOnly(stalledText());
        return {};
    }
    if (!box->started.ok()) {
        mic->setEnabled(false);
        m_mic.reset();
        StartupTrace::step(QStringLiteral("FAILED start engine"), box->started.error());
        fallBackToMeetingOnly(tr("The microphone couldn't be opened (%1). The interviewer is still heard and "
                                 "answered, but your own answers aren't transcribed and the .wav archive is off.")
                                  .arg(box->started.error()));
        return {};
    }
    StartupTrace::step(QStringLiteral("engine started — capture live"));
    m_micExpected = true;
    m_micUp = true;
    return {};
}

void AudioCaptureEngine::fallBackToMeetingOnly(const QString &message)
{
    m_micIsStalled = true;
    m_micExpected = false;
    m_streamSource = int(StreamSource::meetingOnly);
    StartupTrace::write(QStringLiteral("        stream switched to meeting-only; recording disabled"));
    closeRecording();
    m_recordingPath.reset();
    m_meetingFIFO.clear();
    postToOwner([this, message] {
        if (onMicUnavailable)
            onMicUnavailable(message);
    });
}

void AudioCaptureEngine::closeRecording()
{
    m_recordingOpen = false;
    if (!std::exchange(m_recWriter, nullptr))
        return;
    QMetaObject::invokeMethod(&m_writeContext, [this] {
        fillArchive();
        drainRecording();
        if (m_drainWriter)
            m_drainWriter->close();
        checkRecordingWrites();   // the close's own failure too
        m_drainWriter.reset();
    }, Qt::BlockingQueuedConnection);
}

Result<void> AudioCaptureEngine::retarget(const TapTarget &meeting)
{
    std::lock_guard guard(m_control);
    if (!m_running || !m_usingTap)
        return {};
    m_tap.cleanUp();
    m_tapTarget = meeting;
    if (auto tapped = m_tap.start(meeting); !tapped.ok())
        return Result<void>::failure(tapped.error().description());
    if (!m_tap.format())
        return Result<void>::failure(describe(EngineError::badFormat));
    m_meetingFIFO.clear();
    m_meetingUp = true;
    return {};
}

void AudioCaptureEngine::stop()
{
    std::lock_guard guard(m_control);
    if (!m_running)
        return;
    m_running = false;
    releaseSession();
}

void AudioCaptureEngine::releaseSession()
{
    m_micUp = false;
    m_meetingUp = false;
    m_tap.cleanUp();
    if (m_player)
        m_player->stop();   // no block follows
    if (m_mic)
        m_mic.reset();   // stops its thread: no microphone block follows
    else if (m_stalledMic)
        StartupTrace::step(QStringLiteral("skipped engine teardown — mic engine was stalled"));
    closeRecording();   // its path stays, for the caller to show the file
    QMetaObject::invokeMethod(&m_writeContext, [this] { m_drainTimer.stop(); }, Qt::BlockingQueuedConnection);
    m_converterAPIFromMicRate.reset();
    m_converterAPIFrom48.reset();
    m_meetingFIFO.clear();
}

void AudioCaptureEngine::postToOwner(std::function<void()> call)
{
    QMetaObject::invokeMethod(this, std::move(call), Qt::QueuedConnection);
}
