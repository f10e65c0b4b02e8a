#pragma once

#include "speech/UtteranceRecogniser.h"

#include <QCoreApplication>
#include <QLocale>

#include <atomic>

class SpeechEngine;

// Recognises utterances on the device with a speech engine, on the spot: recognise() returns
// after its completion. Decoding stops within a quarter second of audio once `stop` is set.
class EngineRecogniser final : public UtteranceRecogniser
{
    Q_DECLARE_TR_FUNCTIONS(EngineRecogniser)

public:
    EngineRecogniser(SpeechEngine &engine, const QLocale &locale, const std::atomic<bool> &stop);

    Result<void> prepare() override;
    QString description() const override;
    void recognise(std::vector<std::int16_t> samples, Completion completion) override;
    void cancel() override {}

private:
    SpeechEngine &m_engine;
    QLocale m_locale;
    const std::atomic<bool> &m_stop;
};
