#include "speech/RecordingTranscriber.h"

#include "speech/PocketSphinxEngine.h"
#include "speech/RecordingTranscript.h"
#include "speech/Resampler.h"
#include "speech/SpeechLogging.h"
#include "speech/SpeechText.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <sndfile.h>

#include <algorithm>
#include <cmath>

namespace {

// Samples quieter than this (about -80 dBFS) count as digital silence, which is not decoded.
constexpr float kSilence = 1e-4f;
// Shorter stretches of sound than this (0.1 s at 16 kHz) are not speech.
constexpr std::size_t kMinSpeechSamples = 1600;

struct SndFileCloser
{
    void operator()(SNDFILE *file) const { sf_close(file); }
};

// The text of one channel of one chunk, or empty.
QString recogniseChannel(SpeechEngine &engine, Resampler &resampler, const std::vector<float> &mono)
{
    auto isSound = [](float s) { return std::fabs(s) >= kSilence; };
    const auto first = std::find_if(mono.begin(), mono.end(), isSound);
    if (first == mono.end())
        return {};
    const auto last = std::find_if(mono.rbegin(), mono.rend(), isSound).base();
    std::vector<std::int16_t> pcm;
    resampler.process(&*first, static_cast<std::size_t>(last - first), pcm);
    resampler.flush(pcm);
    if (pcm.size() < kMinSpeechSamples)
        return {};
    auto result = engine.recognise(pcm.data(), pcm.size());
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
                                                       const std::atomic<bool> &cancelled, double chunkSeconds)
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
    const sf_count_t chunkFrames = std::max<sf_count_t>(1, static_cast<sf_count_t>(chunkSeconds * rate));
    RecordingTranscript transcript(fileName, totalSeconds);
    Resampler resampler(rate, SpeechEngine::kSampleRate);
    if (!resampler.isValid())
        return Failed{QStringLiteral("Could not convert the audio of %1.").arg(fileName)};

    std::vector<float> interleaved(static_cast<std::size_t>(chunkFrames) * channels);
    std::vector<float> mono;
    sf_count_t position = 0;
    for (;;) {
        if (cancelled.load(std::memory_order_acquire))
            return Failed{cancelledMessage()};
        const int startSeconds = static_cast<int>(static_cast<double>(position) / rate);
        const sf_count_t read = sf_readf_float(file.get(), interleaved.data(), chunkFrames);
        if (read <= 0)
            break;
        QStringList texts;
        mono.resize(static_cast<std::size_t>(read));
        for (int c = 0; c < channels; ++c) {
            for (sf_count_t i = 0; i < read; ++i)
                mono[static_cast<std::size_t>(i)] = interleaved[static_cast<std::size_t>(i * channels + c)];
            texts << recogniseChannel(engine, resampler, mono);
        }
        transcript.addChunk(startSeconds, texts);
        position += read;
        if (progress)
            progress({static_cast<double>(position) / rate, totalSeconds});
    }

    const QString outputPath = RecordingTranscript::outputPath(wavPath);
    QSaveFile out(outputPath);
    if (!out.open(QIODevice::WriteOnly) || out.write(transcript.markdown().toUtf8()) < 0 || !out.commit())
        return Failed{QStringLiteral("Could not write %1: %2").arg(QFileInfo(outputPath).fileName(), out.errorString())};
    qCInfo(lcSpeech, "[Ketterbloom] recording transcribed: %s", qUtf8Printable(outputPath));
    return Written{outputPath};
}
