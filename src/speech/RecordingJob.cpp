#include "speech/RecordingJob.h"

#include "speech/Resampler.h"
#include "speech/SpeechLogging.h"

#include <QFile>
#include <QFileInfo>

#include <sndfile.h>

#include <algorithm>

// The open recording.
struct SndFileHandle
{
    SNDFILE *file = nullptr;
    SF_INFO info{};
    ~SndFileHandle()
    {
        if (file)
            sf_close(file);
    }
};

namespace {

// Audio kept on either side of an utterance for the recogniser (the level rule cuts off soft
// word edges).
constexpr double kPaddingSeconds = 0.25;
// Shorter stretches of sound than this (0.1 s at 16 kHz) are not speech.
constexpr std::size_t kMinSpeechSamples = 1600;
// Frames read at a time while looking for utterances.
constexpr sf_count_t kScanFrames = 1 << 15;

} // namespace

RecordingJob::RecordingJob(const QString &wavPath, UtteranceRecogniser &recogniser, ProgressHandler progress,
                           Finished finished, const std::atomic<bool> &cancelled)
    : m_wavPath(wavPath)
    , m_recogniser(recogniser)
    , m_progress(std::move(progress))
    , m_finished(std::move(finished))
    , m_cancelled(cancelled)
{
}

RecordingJob::~RecordingJob()
{
    // Nothing may come back to a job that is gone.
    if (m_inFlight > 0)
        m_recogniser.cancel();
}

QString RecordingJob::cancelledMessage()
{
    return tr("The transcription was cancelled.");
}

void RecordingJob::start()
{
    const QString fileName = QFileInfo(m_wavPath).fileName();
    m_file = std::make_unique<SndFileHandle>();
    m_file->file = sf_open(QFile::encodeName(m_wavPath).constData(), SFM_READ, &m_file->info);
    if (!m_file->file) {
        finish(Result::failure(tr("Could not read %1: %2").arg(fileName, QString::fromUtf8(sf_strerror(nullptr)))));
        return;
    }
    const SF_INFO &info = m_file->info;
    if (info.channels < 1 || info.samplerate < 1) {
        finish(Result::failure(tr("Could not read %1: it holds no audio.").arg(fileName)));
        return;
    }
    // Cancelled while waiting its turn: the recogniser is not even prepared (models stay unloaded).
    if (isCancelled()) {
        finish(Result::failure(cancelledMessage()));
        return;
    }
    if (const auto prepared = m_recogniser.prepare(); !prepared.ok()) {
        finish(Result::failure(prepared.error()));
        return;
    }

    m_rate = info.samplerate;
    m_channels = info.channels;
    m_frames = info.frames;
    m_totalSeconds = static_cast<double>(info.frames) / m_rate;
    m_transcript.emplace(fileName, m_totalSeconds, m_recogniser.description());
    m_resampler = std::make_unique<Resampler>(m_rate, UtteranceRecogniser::kSampleRate);
    if (!m_resampler->isValid()) {
        finish(Result::failure(tr("Could not convert the audio of %1.").arg(fileName)));
        return;
    }

    // Where each channel speaks (fast: reads the file once, recognises nothing).
    UtteranceSplitter splitter(m_channels, m_rate);
    m_interleaved.resize(static_cast<std::size_t>(kScanFrames) * m_channels);
    for (;;) {
        if (isCancelled()) {
            finish(Result::failure(cancelledMessage()));
            return;
        }
        const sf_count_t read = sf_readf_float(m_file->file, m_interleaved.data(), kScanFrames);
        if (read <= 0)
            break;
        splitter.process(m_interleaved.data(), read);
    }
    m_utterances = splitter.finish();
    if (m_progress)
        m_progress({0.0, m_totalSeconds});
    pump();
}

void RecordingJob::pump()
{
    // Utterances are sent in time order, so that progress follows the recording. A recogniser
    // that answers on the spot is driven by this loop alone.
    if (m_pumping)
        return;
    m_pumping = true;
    while (!m_done && m_inFlight < std::max(m_recogniser.concurrency(), 1) && m_next < m_utterances.size()) {
        if (isCancelled()) {
            finish(Result::failure(cancelledMessage()));
            break;
        }
        if (!send(m_next++))
            break;
    }
    m_pumping = false;
    if (m_done || m_inFlight > 0 || m_next < m_utterances.size())
        return;

    if (m_progress)
        m_progress({m_totalSeconds, m_totalSeconds});
    const auto written = RecordingTranscript::writeBeside(m_wavPath, m_transcript->markdown());
    if (!written.ok()) {
        finish(Result::failure(written.error()));
        return;
    }
    qCInfo(lcSpeech, "[Ketterbloom] recording transcribed: %s", qUtf8Printable(written.value()));
    finish(Written{written.value(), m_recogniser.usage(), m_secondsSent});
}

bool RecordingJob::send(std::size_t index)
{
    const UtteranceSplitter::Utterance &utterance = m_utterances[index];
    const auto padding = static_cast<sf_count_t>(kPaddingSeconds * m_rate);
    const sf_count_t from = std::max<sf_count_t>(0, utterance.startFrame - padding);
    const sf_count_t to = std::min<sf_count_t>(m_frames, utterance.endFrame + padding);
    if (sf_seek(m_file->file, from, SEEK_SET) < 0) {
        finish(Result::failure(tr("Could not read %1: %2")
                                   .arg(QFileInfo(m_wavPath).fileName(), QString::fromUtf8(sf_strerror(m_file->file)))));
        return false;
    }
    m_interleaved.resize(static_cast<std::size_t>(to - from) * m_channels);
    const sf_count_t read = sf_readf_float(m_file->file, m_interleaved.data(), to - from);
    std::vector<float> mono(static_cast<std::size_t>(std::max<sf_count_t>(read, 0)));
    for (std::size_t i = 0; i < mono.size(); ++i)
        mono[i] = m_interleaved[i * static_cast<std::size_t>(m_channels) + static_cast<std::size_t>(utterance.channel)];
    std::vector<std::int16_t> pcm;
    m_resampler->reset();
    m_resampler->process(mono.data(), mono.size(), pcm);
    m_resampler->flush(pcm);

    ++m_inFlight;
    if (pcm.size() < kMinSpeechSamples) {
        utteranceDone(index, QString());
        return !m_done;
    }
    m_secondsSent += static_cast<double>(pcm.size()) / UtteranceRecogniser::kSampleRate;
    m_recogniser.recognise(std::move(pcm), [this, index](const UtteranceRecogniser::Text &result) {
        utteranceDone(index, result);
    });
    return !m_done;
}

void RecordingJob::utteranceDone(std::size_t index, const UtteranceRecogniser::Text &result)
{
    --m_inFlight;
    if (m_done)
        return;
    if (isCancelled()) {
        finish(Result::failure(cancelledMessage()));
        return;
    }
    if (!result.ok()) {
        finish(Result::failure(result.error()));
        return;
    }
    const UtteranceSplitter::Utterance &utterance = m_utterances[index];
    m_transcript->addUtterance(utterance.channel, static_cast<double>(utterance.startFrame) / m_rate,
                               result.value());
    m_secondsDone = std::max(m_secondsDone, static_cast<double>(utterance.endFrame) / m_rate);
    if (m_progress)
        m_progress({m_secondsDone, m_totalSeconds});
    pump();
}

void RecordingJob::cancel()
{
    if (!m_done)
        finish(Result::failure(cancelledMessage()));
}

void RecordingJob::finish(const Result &result)
{
    if (m_done)
        return;
    m_done = true;
    // What is still under way is given up; nothing of it is written.
    if (m_inFlight > 0) {
        m_recogniser.cancel();
        m_inFlight = 0;
    }
    m_file.reset();
    if (m_finished)
        m_finished(result);
}
