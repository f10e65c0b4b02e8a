#include "speech/PocketSphinxEngine.h"

#include "speech/SpeechLogging.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>

#include <algorithm>
#include <cmath>

#include <pocketsphinx.h>
#include <sphinxbase/ngram_model.h>

namespace {

QString localeName(const QLocale &locale)
{
    return locale.name();
}

} // namespace

PocketSphinxEngine::PocketSphinxEngine(QString modelDir, Options options)
    : m_modelDir(modelDir.isEmpty() ? defaultModelDir() : std::move(modelDir))
    , m_options(std::move(options))
{
}

PocketSphinxEngine::~PocketSphinxEngine()
{
    if (m_decoder) {
        if (m_inUtterance)
            ps_end_utt(m_decoder);
        ps_free(m_decoder);
    }
    if (m_generalLm)
        ngram_model_free(m_generalLm);
}

QString PocketSphinxEngine::defaultModelDir()
{
    return QStringLiteral(KETTERBLOOM_POCKETSPHINX_MODELDIR);
}

bool PocketSphinxEngine::modelInstalled(const QString &modelDir)
{
    const QDir dir(modelDir);
    return QFileInfo(dir.filePath(QStringLiteral("en-us/en-us/mdef"))).isFile()
        && QFileInfo(dir.filePath(QStringLiteral("en-us/en-us.lm.bin"))).isFile()
        && QFileInfo(dir.filePath(QStringLiteral("en-us/cmudict-en-us.dict"))).isFile();
}

SpeechAvailability PocketSphinxEngine::availability(const QLocale &locale) const
{
    // Only the English model is packaged. The C locale reads English, so it counts as English.
    const bool english = locale.language() == QLocale::English || locale.language() == QLocale::C;
    if (!english)
        return SpeechAvailability::unsupported(
            tr("Speech recognition is unavailable for %1.").arg(localeName(locale)));
    if (!modelInstalled(m_modelDir))
        return SpeechAvailability::unsupported(
            tr("On-device speech recognition is not installed for %1. Install the pocketsphinx-en-us package.")
                .arg(localeName(locale)));
    return SpeechAvailability::ready();
}

SpeechEngine::Outcome PocketSphinxEngine::load()
{
    if (!m_decoder) {
        if (auto loaded = loadDecoder(); !loaded.ok())
            return loaded;
    }
    // New context words take effect between utterances.
    if (m_contextPending && !m_inUtterance) {
        m_contextPending = false;
        applyContextWords();
    }
    return {};
}

SpeechEngine::Outcome PocketSphinxEngine::loadDecoder()
{
    if (!modelInstalled(m_modelDir))
        return Outcome::failure(Error{kModelLoadFailed, tr("the speech model is missing from %1").arg(m_modelDir)});

    QElapsedTimer timer;
    timer.start();
    const QDir dir(m_modelDir);
    const QByteArray hmm = QFile::encodeName(dir.filePath(QStringLiteral("en-us/en-us")));
    const QByteArray lm = QFile::encodeName(dir.filePath(QStringLiteral("en-us/en-us.lm.bin")));
    const QByteArray dict = QFile::encodeName(dir.filePath(QStringLiteral("en-us/cmudict-en-us.dict")));
    // Up to six further name/value pairs; the argument list ends at the first null.
    constexpr int kExtraSlots = 12;
    std::vector<QByteArray> extra;
    for (const QString &argument : m_options.extraArguments)
        extra.push_back(argument.toUtf8());
    if (extra.size() > kExtraSlots || extra.size() % 2 != 0)
        return Outcome::failure(Error{kModelLoadFailed, tr("the speech model settings were rejected")});
    const char *x[kExtraSlots + 1] = {};
    for (std::size_t i = 0; i < extra.size(); ++i)
        x[i] = extra[i].constData();
    cmd_ln_t *config = cmd_ln_init(nullptr, ps_args(), TRUE,
                                   "-hmm", hmm.constData(),
                                   "-lm", lm.constData(),
                                   "-dict", dict.constData(),
                                   "-logfn", "/dev/null",
                                   x[0], x[1], x[2], x[3], x[4], x[5], x[6], x[7], x[8], x[9], x[10], x[11],
                                   static_cast<char *>(nullptr));
    if (!config)
        return Outcome::failure(Error{kModelLoadFailed, tr("the speech model settings were rejected")});
    m_decoder = ps_init(config);
    cmd_ln_free_r(config);
    if (!m_decoder)
        return Outcome::failure(Error{kModelLoadFailed, tr("the speech model could not be loaded")});
    if (m_options.warmUp)
        warmUp();
    qCInfo(lcSpeech, "[Ketterbloom] speech model loaded in %lld ms", static_cast<long long>(timer.elapsed()));
    return {};
}

std::vector<std::int16_t> PocketSphinxEngine::warmUpAudio()
{
    // Formants of a few vowels (Hz); each syllable glides through one at a pitch near 120 Hz.
    constexpr double kFormants[][3] = {{730, 1090, 2440}, {270, 2290, 3010}, {570, 840, 2410}, {530, 1840, 2480}};
    constexpr double kRate = kSampleRate;
    constexpr double kTwoPi = 6.283185307179586;
    std::vector<std::int16_t> out(static_cast<std::size_t>(kRate));
    double phase = 0;
    // Two-pole resonators, one per formant; state per resonator.
    double y1[3] = {}, y2[3] = {};
    for (std::size_t i = 0; i < out.size(); ++i) {
        const double t = static_cast<double>(i) / kRate;
        const int syllable = static_cast<int>(t * 4.0); // four syllables a second
        const double within = t * 4.0 - syllable;
        const double envelope = within < 0.75 ? std::sin(within / 0.75 * kTwoPi / 2) : 0.0;
        const double pitch = 110.0 + 20.0 * std::sin(t * 3.0);
        phase += pitch / kRate;
        const double pulse = phase >= 1.0 ? 1.0 : 0.0;
        if (phase >= 1.0)
            phase -= 1.0;
        double sample = 0;
        const auto &formants = kFormants[syllable % 4];
        for (int f = 0; f < 3; ++f) {
            const double bandwidth = 80.0 + 40.0 * f;
            const double r = std::exp(-kTwoPi / 2 * bandwidth / kRate);
            const double a1 = 2 * r * std::cos(kTwoPi * formants[f] / kRate);
            const double a2 = -r * r;
            const double y = pulse + a1 * y1[f] + a2 * y2[f];
            y2[f] = y1[f];
            y1[f] = y;
            sample += y / (f + 1);
        }
        out[i] = static_cast<std::int16_t>(std::clamp(sample * envelope * 600.0, -32767.0, 32767.0));
    }
    return out;
}

void PocketSphinxEngine::warmUp()
{
    const std::vector<std::int16_t> audio = warmUpAudio();
    if (ps_start_utt(m_decoder) < 0)
        return;
    ps_process_raw(m_decoder, audio.data(), audio.size(), FALSE, FALSE);
    ps_end_utt(m_decoder);
}

SpeechEngine::Outcome PocketSphinxEngine::prepareUtterance()
{
    // Outside an utterance, load() also switches to new context words.
    cancelUtterance();
    return load();
}

void PocketSphinxEngine::setContextWords(const QStringList &words)
{
    if (words == m_contextWords)
        return;
    m_contextWords = words;
    m_contextPending = true;
}

SpeechEngine::Outcome PocketSphinxEngine::startUtterance()
{
    if (auto prepared = prepareUtterance(); !prepared.ok())
        return prepared;
    if (ps_start_utt(m_decoder) < 0)
        return Outcome::failure(Error{kDecodeFailed, tr("the decoder could not start an utterance")});
    m_inUtterance = true;
    return {};
}

SpeechEngine::Outcome PocketSphinxEngine::process(const std::int16_t *samples, std::size_t count)
{
    if (!m_inUtterance)
        return Outcome::failure(Error{kDecodeFailed, tr("no utterance is running")});
    if (count == 0)
        return {};
    if (ps_process_raw(m_decoder, samples, count, FALSE, FALSE) < 0)
        return Outcome::failure(Error{kDecodeFailed, tr("the decoder rejected the audio")});
    return {};
}

QString PocketSphinxEngine::hypothesis()
{
    int32 score = 0;
    const char *hyp = ps_get_hyp(m_decoder, &score);
    return hyp ? QString::fromUtf8(hyp).simplified() : QString();
}

QString PocketSphinxEngine::partialHypothesis()
{
    return m_inUtterance ? hypothesis() : QString();
}

SpeechEngine::Text PocketSphinxEngine::endUtterance()
{
    if (!m_inUtterance)
        return Text::failure(Error{kDecodeFailed, tr("no utterance is running")});
    m_inUtterance = false;
    if (ps_end_utt(m_decoder) < 0)
        return Text::failure(Error{kDecodeFailed, tr("the decoder could not finish the utterance")});
    QString text = hypothesis();
    if (text.isEmpty())
        return Text::failure(Error{kNothingRecognised, tr("No speech detected")});
    return text;
}

void PocketSphinxEngine::cancelUtterance()
{
    if (!m_inUtterance)
        return;
    m_inUtterance = false;
    ps_end_utt(m_decoder);
}

SpeechEngine::Text PocketSphinxEngine::recognise(const std::int16_t *samples, std::size_t count,
                                                  const std::atomic<bool> &stop)
{
    // Fed in quarter-second blocks so that a stop request is seen quickly; the decoder gives
    // the same words as when it gets the utterance in one piece.
    constexpr std::size_t kBlock = kSampleRate / 4;
    if (auto started = startUtterance(); !started.ok())
        return Text::failure(started.error());
    for (std::size_t i = 0; i < count; i += kBlock) {
        if (stop.load(std::memory_order_acquire)) {
            cancelUtterance();
            return Text::failure(Error{kCancelled, tr("The decoding was stopped")});
        }
        if (auto processed = process(samples + i, std::min(kBlock, count - i)); !processed.ok()) {
            cancelUtterance();
            return Text::failure(processed.error());
        }
    }
    return endUtterance();
}

SpeechEngine::Text PocketSphinxEngine::recogniseWhole(const std::int16_t *samples, std::size_t count)
{
    if (auto prepared = prepareUtterance(); !prepared.ok())
        return Text::failure(prepared.error());
    if (ps_start_utt(m_decoder) < 0)
        return Text::failure(Error{kDecodeFailed, tr("the decoder could not start an utterance")});
    const int processed = ps_process_raw(m_decoder, samples, count, FALSE, TRUE);
    ps_end_utt(m_decoder);
    if (processed < 0)
        return Text::failure(Error{kDecodeFailed, tr("the decoder rejected the audio")});
    QString text = hypothesis();
    if (text.isEmpty())
        return Text::failure(Error{kNothingRecognised, tr("No speech detected")});
    return text;
}
