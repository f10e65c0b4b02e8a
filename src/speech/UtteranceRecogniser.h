#pragma once

#include "common/Result.h"

#include <QString>
#include <QVariantMap>

#include <cstdint>
#include <functional>
#include <vector>

// Turns one utterance of a recording into text, for RecordingTranscriber: on the device, or
// elsewhere (the service). Asynchronous: recognise() may call its completion before it
// returns (a recogniser that works on the spot) or later, from the event loop of the thread
// that called it. All calls come from that one thread.
class UtteranceRecogniser
{
public:
    // 16 kHz mono signed 16-bit audio of one utterance.
    static constexpr int kSampleRate = 16000;

    // The utterance's text, formatted for reading (empty when nothing was said); or one sentence
    // for the user, which ends the whole recording's transcription.
    using Text = Result<QString>;
    using Completion = std::function<void(const Text &)>;

    virtual ~UtteranceRecogniser() = default;

    // Fails with why nothing can be recognised (models missing, no key …); may be slow the
    // first time (loads what is needed). Called once before the first utterance.
    virtual Result<void> prepare() = 0;
    // Utterances that may be under way at once.
    virtual int concurrency() const { return 1; }
    // How the transcript says it was made: "Transcribed on-device."
    virtual QString description() const = 0;
    // Recognises `samples`; `completion` is called once, unless cancel() comes first.
    virtual void recognise(std::vector<std::int16_t> samples, Completion completion) = 0;
    // Gives up everything under way; no completion is called after it.
    virtual void cancel() = 0;
    // What the recogniser used, in the service's "usage" form summed over the utterances; empty
    // when it is not billed.
    virtual QVariantMap usage() const { return {}; }
};
