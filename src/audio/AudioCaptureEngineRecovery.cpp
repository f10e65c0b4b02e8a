// The recovering half of AudioCaptureEngine: on the watch thread, checking the running capture
// after every sign of trouble and reattaching what went away, with back-off; on the writer
// thread, keeping the archive and the meeting line running in wall-clock time meanwhile.

#include "audio/AudioCaptureEngine.h"

#include "audio/AudioDeviceManager.h"
#include "audio/AudioLogging.h"
#include "audio/MicInput.h"

#include <algorithm>
#include <chrono>
#include <iterator>

namespace {

constexpr int checkTimeoutMs = 1500;
constexpr int reattachStreamTimeoutMs = 3000;

qint64 nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

} // namespace

void AudioCaptureEngine::noteTrouble()
{
    if (m_checkQueued.exchange(true))
        return;
    QMetaObject::invokeMethod(&m_watchContext, [this] {
        m_checkQueued = false;
        scheduleCheck(troubleDebounceMs);
    }, Qt::QueuedConnection);
}

void AudioCaptureEngine::scheduleCheck(int delayMs)
{
    // An earlier check stays earlier.
    if (m_checkTimer.isActive() && m_checkTimer.remainingTime() <= delayMs)
        return;
    m_checkTimer.start(delayMs);
}

void AudioCaptureEngine::switchMicrophone(const std::optional<QString> &deviceUID, int channel)
{
    QMetaObject::invokeMethod(&m_watchContext, [this, deviceUID, channel] {
        {
            std::lock_guard guard(m_control);
            if (!m_running)
                return;
            std::optional<AudioInputDevice> device;
            if (deviceUID && !deviceUID->isEmpty())
                device = AudioDeviceManager::device(*deviceUID);
            if (!device)
                device = AudioDeviceManager::defaultInputDevice();
            const QString source = device ? device->uid : deviceUID.value_or(QString());
            if (source == m_micSource && channel == m_micChannelWanted && m_mic && m_mic->isAlive())
                return;
            qCInfo(lcAudio, "[Ketterbloom] switching the microphone to %s", qUtf8Printable(source));
            m_micSource = source;
            m_micName = device ? device->name : source;
            m_micChannelWanted = channel;
            if (m_usingTap && !m_micIsStalled)
                m_micExpected = true;
            dropMic();
        }
        m_retryStep = 0;
        runCheck();
    }, Qt::QueuedConnection);
}

void AudioCaptureEngine::runCheck()
{
    if (!m_running || m_usingRecording)
        return;
    // A fresh connection every time: a long-lived one may keep reporting an old default.
    // (Asked before taking the control lock, so a slow server never holds up stop().)
    const std::optional<QString> defaultSink = ProcessTapCapture::usableDefaultSink(checkTimeoutMs);
    std::lock_guard guard(m_control);
    if (!m_running)
        return;
    CaptureHealth health;
    health.soundServer = defaultSink.has_value();
    bool settled = true;   // nothing to retry soon
    if (!health.soundServer) {
        // Everything on the old connections is gone; drop it so it can be rebuilt.
        if (m_tap.isRunning())
            m_tap.cleanUp();
        dropMic();
        health.meetingOutput = false;
        health.microphone = !m_micExpected;
        settled = false;
    } else {
        if (m_usingTap && m_tapTarget.kind == TapTarget::Kind::systemOutput) {
            if (defaultSink->isEmpty())
                settled = false;   // between outputs: look again soon
            else if (m_tap.isHealthy() && m_tap.monitoredSink() != *defaultSink)
                m_tap.cleanUp();   // the default moved: follow it
        }
        const bool micOk = recoverMic();
        health.microphone = micOk || !m_micExpected;
        health.meetingOutput = m_usingTap ? recoverMeeting() : micOk;
        settled = settled && health.meetingOutput && health.microphone;
    }
    health.microphoneName = m_micName;
    m_meetingUp = health.meetingOutput;
    if (!health.meetingOutput)
        m_meetingPeak = 0.0f;
    publishHealth(health);
    if (settled) {
        m_retryStep = 0;
        scheduleCheck(healthyCheckMs);
    } else {
        const int last = int(std::size(retryDelaysMs)) - 1;
        scheduleCheck(retryDelaysMs[std::min(m_retryStep, last)]);
        m_retryStep = std::min(m_retryStep + 1, last);
    }
}

bool AudioCaptureEngine::recoverMeeting()
{
    if (m_tap.isHealthy())
        return true;
    m_tap.cleanUp();
    if (const auto tapped = m_tap.start(m_tapTarget); !tapped.ok()) {
        qCInfo(lcAudio, "[Ketterbloom] meeting capture not back yet: %s", qUtf8Printable(tapped.error().description()));
        return false;
    }
    qCInfo(lcAudio, "[Ketterbloom] meeting capture resumed on %s",
           qUtf8Printable(m_tapTarget.kind == TapTarget::Kind::systemOutput ? m_tap.monitoredSink()
                                                                             : m_tapTarget.appID));
    return true;
}

bool AudioCaptureEngine::recoverMic()
{
    if (!m_micExpected)
        return false;
    if (m_mic && m_mic->isAlive())
        return true;
    dropMic();
    // Only the same device (by name) comes back on its own; another one is the user's choice.
    auto mic = std::make_shared<MicInput>();
    if (auto bound = mic->bind(m_micSource); !bound.ok()) {
        qCInfo(lcAudio, "[Ketterbloom] microphone not back yet: %s", qUtf8Printable(bound.error()));
        return false;
    }
    const int channels = mic->channelCount();
    if (channels <= 0)
        return false;
    prepareMicBuffers(channels);   // the old stream is gone: nothing reads these now
    m_micChannel = std::min(channels - 1, std::max(m_micChannelWanted, 0));
    if (!m_usingTap && m_meetingChannel)
        m_meetingChannel = std::min(channels - 1, std::max(*m_meetingChannel, 0));
    attachMicCallbacks(*mic);
    m_mic = mic;
    if (auto started = mic->startStream(reattachStreamTimeoutMs); !started.ok()) {
        qCInfo(lcAudio, "[Ketterbloom] microphone not back yet: %s", qUtf8Printable(started.error()));
        dropMic();
        return false;
    }
    m_micName = mic->description();
    m_micUp = true;
    qCInfo(lcAudio, "[Ketterbloom] microphone %s attached", qUtf8Printable(m_micSource));
    return true;
}

void AudioCaptureEngine::dropMic()
{
    m_micUp = false;
    if (m_mic)
        m_mic.reset();   // joins its thread: no block of it follows
    // The writer thread keeps the archive's time until a microphone feeds it again.
    m_archiveClock = ArchiveClock::micLost;
}

void AudioCaptureEngine::publishHealth(const CaptureHealth &health)
{
    if (health == m_health)
        return;
    qCInfo(lcAudio, "[Ketterbloom] capture health: server %s, meeting %s, microphone %s",
           health.soundServer ? "up" : "DOWN", health.meetingOutput ? "up" : "DOWN", health.microphone ? "up" : "DOWN");
    m_health = health;
    postToOwner([this, health] {
        if (onHealth)
            onHealth(health);
    });
}

// ---- Writer thread -------------------------------------------------------------------

void AudioCaptureEngine::lineTick()
{
    fillArchive();
    drainRecording();
    emitSilentLine();
}

void AudioCaptureEngine::fillArchive()
{
    const ArchiveClock clock = m_archiveClock;
    if (!m_drainWriter || clock == ArchiveClock::micFeeds)
        return;
    // No microphone clocks the archive: fill the time since it was last written, so a crash
    // loses nothing of it. A lost microphone leaves a silent left beside the meeting that came
    // in meanwhile. Before the microphone's first block both sides are silent: the meeting
    // waits in the FIFO for the microphone, as it will be paired with it.
    const bool withMeeting = clock == ArchiveClock::micLost;
    const qint64 now = nowNs();
    qint64 coveredUntil = m_archiveClockNs.load();
    const qint64 frames = now > coveredUntil ? (now - coveredUntil) * recordRate / 1000000000LL : 0;
    if (frames <= 0)
        return;
    const qint64 until = coveredUntil + frames * 1000000000LL / recordRate;
    if (!m_archiveClockNs.compare_exchange_strong(coveredUntil, until))
        return;   // the microphone came back meanwhile and covers this time
    m_fillBlock.resize(size_t(micBlockFrames) * recordChannels);
    m_fillMeeting.resize(size_t(micBlockFrames));
    for (qint64 left = frames; left > 0;) {
        const int n = int(std::min<qint64>(left, micBlockFrames));
        if (withMeeting)
            m_meetingFIFO.popInto(m_fillMeeting.data(), n);
        else
            std::fill_n(m_fillMeeting.begin(), n, 0.0f);
        for (int i = 0; i < n; ++i) {
            m_fillBlock[size_t(2 * i)] = 0.0f;
            m_fillBlock[size_t(2 * i + 1)] = m_fillMeeting[size_t(i)];
        }
        m_recordFIFO.push(m_fillBlock.data(), n * recordChannels);
        left -= n;
        if (m_recordFIFO.available() > m_recordFIFO.capacity() / 2)
            drainRecording();
    }
}

void AudioCaptureEngine::emitSilentLine()
{
    // While the meeting side is missing and the model hears the meeting, it hears silence in
    // real time, so its turn detection still ends the last question.
    const bool meetingToModel = !m_micUp || streamSource() == StreamSource::meetingOnly;
    if (!m_running || m_meetingUp || !meetingToModel) {
        m_silentLineNs = 0;
        return;
    }
    const qint64 now = nowNs();
    if (m_silentLineNs == 0) {
        m_silentLineNs = now;
        return;
    }
    const qint64 frames = (now - m_silentLineNs) * 24000 / 1000000000LL;
    if (frames <= 0)
        return;
    m_silentLineNs += frames * 1000000000LL / 24000;
    if (onPCM16)
        onPCM16(QByteArray(qsizetype(frames) * 2, '\0'));
    if (!m_micUp)
        postLevels(0.0f, 0.0f);
}
