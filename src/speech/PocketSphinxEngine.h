#pragma once

#include "speech/SpeechEngine.h"

#include <QString>

struct ps_decoder_s;

// The on-device recogniser: the PocketSphinx decoder with the packaged US English model.
// The decoder is loaded on the first use (about 0.4 s and 100 MB) and kept until the engine
// is destroyed; owners keep one engine for the life of the process, because the first
// utterance after loading is decoded with a cold normaliser and comes out worse.
class PocketSphinxEngine final : public SpeechEngine
{
public:
    // `modelDir` holds en-us/ with the acoustic model en-us/, en-us.lm.bin and cmudict-en-us.dict; empty means the
    // packaged model folder.
    explicit PocketSphinxEngine(QString modelDir = {});
    ~PocketSphinxEngine() override;
    PocketSphinxEngine(const PocketSphinxEngine &) = delete;
    PocketSphinxEngine &operator=(const PocketSphinxEngine &) = delete;

    static QString defaultModelDir();
    // Whether the model files are present in `modelDir`.
    static bool modelInstalled(const QString &modelDir);

    SpeechAvailability availability(const QLocale &locale) const override;
    std::optional<Error> load() override;
    std::optional<Error> startUtterance() override;
    std::optional<Error> process(const std::int16_t *samples, std::size_t count) override;
    QString partialHypothesis() override;
    std::variant<QString, Error> endUtterance() override;
    void cancelUtterance() override;
    std::variant<QString, Error> recognise(const std::int16_t *samples, std::size_t count,
                                           const std::atomic<bool> &stop) override;

private:
    QString hypothesis();

    QString m_modelDir;
    ps_decoder_s *m_decoder = nullptr;
    bool m_inUtterance = false;
};
