#pragma once

#include "speech/SpeechEngine.h"

#include <QCoreApplication>
#include <QString>
#include <QStringList>

#include <vector>

struct ps_decoder_s;
struct ngram_model_s;

// How the on-device decoder is set up.
struct PocketSphinxOptions
{
    // Decode a second of generated voice right after loading. Measured: it makes the first
    // utterance a little better but every later one worse (the generated voice pulls the
    // running normalisation away from real speech), so it is off; the microphone path
    // decodes its first segments again as a whole instead (MicDecoderWorker).
    bool warmUp = false;
    // Decoder settings ("-name", "value", …). Measured on read speech and on interview
    // answers: without the flat-lexicon second pass and the lattice best path, the words come
    // out better (and sooner).
    QStringList extraArguments{QStringLiteral("-fwdflat"), QStringLiteral("no"), QStringLiteral("-bestpath"), QStringLiteral("no")};
    // Context words: the share of the language model given to them (spread evenly), and the
    // general model's probability above which a word is common enough to be left alone.
    double contextWeight = 0.05;
    double contextCeiling = 1e-4;
    // How the decoder was set up before these options existed (for comparisons).
    static PocketSphinxOptions untuned() { return {false, {}, 0.0, 0.0}; }
    static PocketSphinxOptions warmedUp() { return {true, {}, 0.0, 0.0}; }
};


// The on-device recogniser: the PocketSphinx decoder with the packaged US English model.
// The decoder is loaded on the first use (about 0.4 s and 100 MB) and kept until the engine
// is destroyed; owners keep one engine for the life of the process, because the first
// utterance after loading is decoded with a cold normaliser and comes out worse.
class PocketSphinxEngine final : public SpeechEngine
{
    Q_DECLARE_TR_FUNCTIONS(PocketSphinxEngine)

public:
    using Options = PocketSphinxOptions;

    // `modelDir` holds en-us/ with the acoustic model en-us/, en-us.lm.bin and cmudict-en-us.dict; empty means the
    // packaged model folder.
    explicit PocketSphinxEngine(QString modelDir = {}, Options options = {});
    ~PocketSphinxEngine() override;
    PocketSphinxEngine(const PocketSphinxEngine &) = delete;
    PocketSphinxEngine &operator=(const PocketSphinxEngine &) = delete;

    static QString defaultModelDir();
    // Whether the model files are present in `modelDir`.
    static bool modelInstalled(const QString &modelDir);

    SpeechAvailability availability(const QLocale &locale) const override;
    Outcome load() override;
    Outcome startUtterance() override;
    Outcome process(const std::int16_t *samples, std::size_t count) override;
    QString partialHypothesis() override;
    Text endUtterance() override;
    void cancelUtterance() override;
    // Takes effect at the next load() or utterance start.
    void setContextWords(const QStringList &words) override;
    // How many context words the language model favours now (known to the dictionary and
    // not already common); counted when the next utterance starts.
    int favouredWordCount() const { return m_favouredCount; }
    // Decodes a whole utterance in one pass, normalised over the utterance itself, so that the
    // result does not depend on what the engine heard before (measured against decodeAgain()).
    Text recogniseWhole(const std::int16_t *samples, std::size_t count);
    Text recognise(const std::int16_t *samples, std::size_t count, const std::atomic<bool> &stop) override;

    // One second of a generated voice (a glottal pulse train through vowel formants, in
    // syllables) at a speaking level, 16 kHz.
    static std::vector<std::int16_t> warmUpAudio();

private:
    Outcome loadDecoder();
    QString hypothesis();
    void warmUp();
    // Switches the decoder to the general model, or to it mixed with the context words.
    void applyContextWords();
    Outcome prepareUtterance();

    QString m_modelDir;
    Options m_options;
    ps_decoder_s *m_decoder = nullptr;
    bool m_inUtterance = false;
    QStringList m_contextWords;
    bool m_contextPending = false;
    int m_favouredCount = 0;
    ngram_model_s *m_generalLm = nullptr; // the packaged model, retained once context words are used
};
