#include "speech/RecordingTranscriber.h"

#include "speech/PocketSphinxEngine.h"
#include "speech/RecordingTranscript.h"
#include "speech/Resampler.h"
#include "speech/SpeechLogging.h"
#include "speech/SpeechText.h"
#include "speech/UtteranceSplitter.h"

#include <QFile>
#include <QFileInfo>

#include <sndfile.h>

#include <algorithm>
#include <cmath>

namespace {

// Audio kept on either side of an utterance for the decoder (the level rule cuts off soft
// word edges).
constexpr double kPaddingSeconds = 0.25;
// Shorter stretches of sound than this (0.1 s at 16 kHz) are not speech.
constexpr std::size_t kMinSpeechSamples = 1600;
// Frames read at a time while looking for utterances.
constexpr sf_count_t kScanFrames = 1 << 15;

struct SndFileCloser
{
    void operator()(SNDFILE *file) const { sf_close(file); }
};

// The text of one utterance, or empty.
QString recognise(SpeechEngine &engine, Resampler &resampler, const std::vector<float> &mono,
                  const std::atomic<bool> &cancelled)
{
    std::vector<std::int16_t> pcm;
    resampler.reset();
    resampler.process(mono.data(), mono.size(), pcm);
    resampler.flush(pcm);
    if (pcm.size() < kMinSpeechSamples)
        return {};
    auto result = engine.recognise(pcm.data(), pcm.size(), cancelled);
    if (auto *error = std::get_if<SpeechEngine::Error>(&result)) {
        if (!SpeechEngine::isSilentError(error->code))
            qCWarning(lcSpeech, "[Ketterbloom] speech recognition failed: %s (%d)",
                      qUtf8Printable(error->description), error->code);
        return {};
    }
    return SpeechText::format(std::get<QString>(result));
}

} // namespace

RecordingTranscriber::RecordingTranscriber(std::shared_ptr<SpeechEngine> engine, const QLocale &locale, QObject *parent)
    : QObject(parent)
    , m_engine(std::move(engine))
    , m_locale(locale)
    , m_context(new QObject)
{
    m_context->moveToThread(&m_thread);
    connect(&m_thread, &QThread::finished, m_context, &QObject::deleteLater);
    m_thread.setObjectName(QStringLiteral("kb-rec-speech"));
    m_thread.start();
}

RecordingTranscriber::~RecordingTranscriber()
{
    cancel();
    m_thread.quit();
    m_thread.wait();
}

QString RecordingTranscriber::cancelledMessage()
{
    return QStringLiteral("The transcription was cancelled.");
}

RecordingTranscriber::Result RecordingTranscriber::transcribeFile(const QString &wavPath, const ProgressHandler &progress,
                                                                  const std::atomic<bool> *cancelled)
{
    PocketSphinxEngine engine;
    const std::atomic<bool> never{false};
    return run(wavPath, engine, QLocale::system(), progress, cancelled ? *cancelled : never);
}

void RecordingTranscriber::transcribe(const QString &wavPath, ProgressHandler progress,
                                      std::function<void(const Result &)> completion)
{
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    m_jobs.push_back(cancelled);
    // The job's lambdas reach back to this object only through queued calls with it as the
    // context; the destructor stops the worker thread before this object goes away.
    auto onProgress = [this, progress = std::move(progress)](const RecordingProgress &p) {
        QMetaObject::invokeMethod(this, [progress, p] {
            if (progress)
                progress(p);
        }, Qt::QueuedConnection);
    };
    auto job = [this, wavPath, cancelled, onProgress = std::move(onProgress), completion = std::move(completion)] {
        Result result;
        if (m_engine) {
            result = run(wavPath, *m_engine, m_locale, onProgress, *cancelled);
        } else {
            PocketSphinxEngine engine;
            result = run(wavPath, engine, m_locale, onProgress, *cancelled);
        }
        QMetaObject::invokeMethod(this, [this, cancelled, completion, result] {
            std::erase(m_jobs, cancelled);
            if (completion)
                completion(result);
        }, Qt::QueuedConnection);
    };
    QMetaObject::invokeMethod(m_context, std::move(job), Qt::QueuedConnection);
}

void RecordingTranscriber::cancel()
{
    for (const auto &flag : m_jobs)
        flag->store(true, std::memory_order_release);
}

RecordingTranscriber::Result RecordingTranscriber::run(const QString &wavPath, SpeechEngine &engine,
                                                       const QLocale &locale, const ProgressHandler &progress,
                                                       const std::atomic<bool> &cancelled)
{
    const QString fileName = QFileInfo(wavPath).fileName();
    SF_INFO info{};
    std::unique_ptr<SNDFILE, SndFileCloser> file(sf_open(QFile::encodeName(wavPath).constData(), SFM_READ, &info));
    if (!file)
        return Failed{QStringLiteral("Could not read %1: %2").arg(fileName, QString::fromUtf8(sf_strerror(nullptr)))};
    if (info.channels < 1 || info.samplerate < 1)
        return Failed{QStringLiteral("Could not read %1: it holds no audio.").arg(fileName)};

    const SpeechAvailability availability = engine.availability(locale);
    if (availability.kind != SpeechAvailability::Kind::ready)
        return Failed{availability.message};
    if (auto error = engine.load())
        return Failed{QStringLiteral("On-device transcription failed: ") + error->description};

    const double rate = info.samplerate;
    const int channels = info.channels;
    const double totalSeconds = static_cast<double>(info.frames) / rate;
    RecordingTranscript transcript(fileName, totalSeconds);
    Resampler resampler(rate, SpeechEngine::kSampleRate);
    if (!resampler.isValid())
        return Failed{QStringLiteral("Could not convert the audio of %1.").arg(fileName)};

    // Where each channel speaks (fast: reads the file once, decodes nothing).
    UtteranceSplitter splitter(channels, rate);
    std::vector<float> interleaved(static_cast<std::size_t>(kScanFrames) * channels);
    for (;;) {
        if (cancelled.load(std::memory_order_acquire))
            return Failed{cancelledMessage()};
        const sf_count_t read = sf_readf_float(file.get(), interleaved.data(), kScanFrames);
        if (read <= 0)
            break;
        splitter.process(interleaved.data(), read);
    }
    const std::vector<UtteranceSplitter::Utterance> utterances = splitter.finish();
    if (progress)
        progress({0.0, totalSeconds});

    // Each utterance on its own, in time order, so that progress follows the recording.
    const auto padding = static_cast<sf_count_t>(kPaddingSeconds * rate);
    std::vector<float> mono;
    double done = 0;
    for (const UtteranceSplitter::Utterance &utterance : utterances) {
        if (cancelled.load(std::memory_order_acquire))
            return Failed{cancelledMessage()};
        const sf_count_t from = std::max<sf_count_t>(0, utterance.startFrame - padding);
        const sf_count_t to = std::min<sf_count_t>(info.frames, utterance.endFrame + padding);
        if (sf_seek(file.get(), from, SEEK_SET) < 0)
            return Failed{QStringLiteral("Could not read %1: %2").arg(fileName, QString::fromUtf8(sf_strerror(file.get())))};
        interleaved.resize(static_cast<std::size_t>(to - from) * channels);
        const sf_count_t read = sf_readf_float(file.get(), interleaved.data(), to - from);
        mono.resize(static_cast<std::size_t>(std::max<sf_count_t>(read, 0)));
        for (std::size_t i = 0; i < mono.size(); ++i)
            mono[i] = interleaved[i * static_cast<std::size_t>(channels) + static_cast<std::size_t>(utterance.channel)];
        const QString text = recognise(engine, resampler, mono, cancelled);
        if (cancelled.load(std::memory_order_acquire))
            return Failed{cancelledMessage()};
        transcript.addUtterance(utterance.channel, static_cast<double>(utterance.startFrame) / rate, text);
        done = std::max(done, static_cast<double>(utterance.endFrame) / rate);
        if (progress)
            progress({done, totalSeconds});
    }
    if (progress)
        progress({totalSeconds, totalSeconds});

    const auto written = RecordingTranscript::writeBeside(wavPath, transcript.markdown());
    if (written.path.isEmpty())
        return Failed{written.error};
    qCInfo(lcSpeech, "[Ketterbloom] recording transcribed: %s", qUtf8Printable(written.path));
    return Written{written.path};
}
