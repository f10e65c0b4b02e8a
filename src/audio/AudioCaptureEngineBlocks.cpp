// The streaming half of AudioCaptureEngine: on the microphone and tap threads, re-blocking
// the microphone, mixing and converting for the model, and queueing the archive; on the
// writer thread, draining the archive into the WAV file.

#include "audio/AudioCaptureEngine.h"

#include "audio/Pcm16Resampler.h"
#include "audio/WavWriter.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>

namespace {

qint64 steadyNowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

qint64 framesIn(qint64 ns, int rate)
{
    return ns > 0 ? ns * rate / 1000000000LL : 0;
}

float peakOf(const float *samples, int frames)
{
    float peak = 0.0f;
    for (int i = 0; i < frames; ++i)
        peak = std::max(peak, std::fabs(samples[i]));
    return std::min(peak, 1.0f);
}

} // namespace

void AudioCaptureEngine::onMicFrames(const float *interleaved, int frames)
{
    const int ch = m_deviceChannels;
    int done = 0;
    while (done < frames) {
        const int take = std::min(frames - done, micBlockFrames - m_blockFill);
        std::memcpy(m_block.data() + size_t(m_blockFill) * ch, interleaved + size_t(done) * ch,
                    size_t(take) * ch * sizeof(float));
        m_blockFill += take;
        done += take;
        if (m_blockFill < micBlockFrames)
            break;
        m_blockFill = 0;
        const int micCh = std::min(ch - 1, m_micChannel);
        for (int i = 0; i < micBlockFrames; ++i)
            m_micMono[size_t(i)] = m_block[size_t(i) * ch + micCh];
        if (m_usingTap) {
            handleMicBlock(micBlockFrames);
        } else {
            if (m_meetingChannel) {
                const int meetCh = std::min(ch - 1, *m_meetingChannel);
                for (int i = 0; i < micBlockFrames; ++i)
                    m_meetingMono[size_t(i)] = m_block[size_t(i) * ch + meetCh];
            }
            handleDeviceBlock(micBlockFrames);
        }
    }
}

void AudioCaptureEngine::handleDeviceBlock(int n)
{
    const float *mic = m_micMono.data();
    const float *meeting = m_meetingChannel ? m_meetingMono.data() : nullptr;
    const float *toModel = mic;
    switch (streamSource()) {
    case StreamSource::meetingOnly:
        toModel = meeting ? meeting : mic;
        break;
    case StreamSource::micOnly:
        toModel = mic;
        break;
    case StreamSource::both:
        if (meeting) {
            for (int i = 0; i < n; ++i)
                m_mixMono[size_t(i)] = std::clamp((mic[i] + meeting[i]) * 0.5f, -1.0f, 1.0f);
            toModel = m_mixMono.data();
        }
        break;
    }
    emitPCM16(m_converterAPIFromMicRate.get(), toModel, n);
    if (onMicBuffer)
        onMicBuffer(mic, n);
    if (m_recordingOpen)
        writeStereo(mic, meeting ? meeting : mic, n);
    postLevels(peakOf(mic, n), meeting ? peakOf(meeting, n) : 0.0f);
}

void AudioCaptureEngine::handleMicBlock(int n)
{
    const float *mic = m_micMono.data();
    if (onMicBuffer)
        onMicBuffer(mic, n);
    const StreamSource source = streamSource();
    if (source == StreamSource::micOnly)
        emitPCM16(m_converterAPIFromMicRate.get(), mic, n);
    const bool recording = m_recordingOpen;
    if (recording || source == StreamSource::both) {
        popMeeting(m_meetingMono.data(), n);
        const float *meeting = m_meetingMono.data();
        if (source == StreamSource::both) {
            for (int i = 0; i < n; ++i)
                m_mixMono[size_t(i)] = std::clamp((mic[i] + meeting[i]) * 0.5f, -1.0f, 1.0f);
            emitPCM16(m_converterAPIFrom48.get(), m_mixMono.data(), n);
        }
        if (recording)
            writeStereo(mic, meeting, n);
    }
    postLevels(peakOf(mic, n), m_meetingPeak.load());
}

void AudioCaptureEngine::popMeeting(float *out, int frames)
{
    // Meeting audio that comes in after silence had to stand in for it is dropped, so the
    // two sides keep the offset they started with.
    if (m_meetingDeficit > 0) {
        const int spare = m_meetingFIFO.available() - frames;
        if (spare > 0)
            m_meetingDeficit -= m_meetingFIFO.discard(std::min(m_meetingDeficit, spare));
    }
    const int real = m_meetingFIFO.popInto(out, frames);
    if (real < frames) {
        m_meetingDeficit += frames - real;
        if (m_meetingDeficit > maxMeetingDeficitFrames)
            m_meetingDeficit = 0;
    }
}

void AudioCaptureEngine::handleTapAudio(const float *samples, int frames)
{
    if (frames <= 0)
        return;
    m_lastTapArrivalNs = steadyNowNs();
    const float peak = peakOf(samples, frames);
    m_meetingPeak = peak;
    // Without the microphone the session streams the meeting alone, and the meters follow it.
    const bool micUp = m_micUp;
    const StreamSource source = streamSource();
    if (source == StreamSource::meetingOnly || !micUp)
        emitPCM16(m_converterAPIFrom48.get(), samples, frames);
    if (m_recordingOpen || (source == StreamSource::both && micUp))
        m_meetingFIFO.push(samples, frames);
    if (!micUp)
        postLevels(0.0f, peak);
}

void AudioCaptureEngine::handleRecordingBlock(const float *samples, int frames)
{
    emitPCM16(m_converterAPIFrom48.get(), samples, frames);
    // No microphone: m_micMono stays silent and is the archive's left.
    if (m_recordingOpen)
        writeStereo(m_micMono.data(), samples, frames);
    postLevels(0.0f, peakOf(samples, frames));
}

void AudioCaptureEngine::emitPCM16(Pcm16Resampler *converter, const float *samples, int frames)
{
    if (!converter)
        return;
    const QByteArray bytes = converter->process(samples, frames);
    if (!bytes.isEmpty() && onPCM16)
        onPCM16(bytes);
}

void AudioCaptureEngine::writeStereo(const float *left, const float *right, int frames)
{
    frames = std::min(frames, micBlockFrames);
    // The microphone clocks the archive. Its first block after a gap (the start, a lost
    // microphone, a lost server) first fills the time the writer thread has not covered.
    const qint64 now = steadyNowNs();
    const qint64 coveredUntil = m_archiveClockNs.exchange(now);
    if (m_archiveClock.exchange(ArchiveClock::micFeeds) != ArchiveClock::micFeeds)
        catchUpArchive(int(std::min<qint64>(framesIn(now - coveredUntil, recordRate) - frames, recordRate * 4)));
    float *out = m_stereoBlock.data();
    for (int i = 0; i < frames; ++i) {
        out[2 * i] = left[i];
        out[2 * i + 1] = right[i];
    }
    m_recordFIFO.push(out, frames * recordChannels);
}

void AudioCaptureEngine::catchUpArchive(int frames)
{
    while (frames > 0) {
        const int n = std::min(frames, micBlockFrames);
        m_recordFIFO.push(m_gapBlock.data(), n * recordChannels);
        frames -= n;
    }
}

void AudioCaptureEngine::drainRecording()
{
    const int frames = m_recordFIFO.available() / recordChannels;
    if (frames == 0 || !m_drainWriter)
        return;
    const size_t n = size_t(frames);
    m_drainInterleaved.resize(n * recordChannels);
    m_drainLeft.resize(n);
    m_drainRight.resize(n);
    m_recordFIFO.popInto(m_drainInterleaved.data(), frames * recordChannels);
    for (size_t i = 0; i < n; ++i) {
        m_drainLeft[i] = m_drainInterleaved[2 * i];
        m_drainRight[i] = m_drainInterleaved[2 * i + 1];
    }
    const float *channels[recordChannels] = {m_drainLeft.data(), m_drainRight.data()};
    m_drainWriter->write(channels, recordChannels, frames);
    checkRecordingWrites();
}

void AudioCaptureEngine::postLevels(float mic, float meeting)
{
    const qint64 now = m_clock.elapsed();
    if (now - m_lastLevelPostMs.load() < levelIntervalMs)
        return;
    m_lastLevelPostMs = now;
    postToOwner([this, mic, meeting] {
        if (onLevels)
            onLevels(mic, meeting);
    });
}
