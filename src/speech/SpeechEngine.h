#pragma once

#include "common/Result.h"
#include "speech/SpeechTypes.h"

#include <QLocale>
#include <QString>
#include <QStringList>

#include <atomic>
#include <cstdint>

// A speech recogniser working on one utterance at a time: 16 kHz mono signed 16-bit audio in,
// the running hypothesis while the utterance lasts, and the final hypothesis at its end.
// Not thread-safe: one thread drives an engine at a time. Text comes back as the decoder
// produced it (lower case, no punctuation); callers format it with SpeechText.
class SpeechEngine
{
public:
    struct Error
    {
        int code = 0;
        QString description;
        friend bool operator==(const Error &, const Error &) = default;
    };
    // What a step returns: nothing, or why it failed.
    using Outcome = Result<void, Error>;
    // A hypothesis, or why there is none.
    using Text = Result<QString, Error>;

    // Error codes. Those that mean "nothing was said" or "stopped on purpose" are silent.
    static constexpr int kNoMatch = 203;            // speech heard but no words matched
    static constexpr int kNothingRecognised = 1110; // no speech in the utterance
    static constexpr int kCancelled = 301;          // the utterance was cancelled
    static constexpr int kModelLoadFailed = 1;
    static constexpr int kDecodeFailed = 2;
    static bool isSilentError(int code)
    {
        return code == kNoMatch || code == kNothingRecognised || code == kCancelled;
    }

    static constexpr int kSampleRate = 16000;

    virtual ~SpeechEngine() = default;

    // Whether recognition can run for `locale` on this machine (cheap; loads nothing).
    virtual SpeechAvailability availability(const QLocale &locale) const = 0;
    // Loads the models once; later calls return at once. Slow the first time.
    virtual Outcome load() = 0;
    virtual Outcome startUtterance() = 0;
    // Feeds audio to the running utterance.
    virtual Outcome process(const std::int16_t *samples, std::size_t count) = 0;
    // The whole hypothesis of the running utterance so far (empty if none yet).
    virtual QString partialHypothesis() = 0;
    // Ends the running utterance and returns its final text, or kNothingRecognised when
    // it holds no words.
    virtual Text endUtterance() = 0;
    // Drops the running utterance, if any.
    virtual void cancelUtterance() = 0;
    // Words from the user's own documents to expect more readily, from the next utterance on
    // (see ContextWords); empty clears them. Engines without such a notion ignore them.
    virtual void setContextWords(const QStringList &words) { (void)words; }
    // Decodes a segment the engine has just decoded live a second time, now that its running
    // normalisation has adapted to that very audio (a cold engine's first segments).
    virtual Text decodeAgain(const std::int16_t *samples, std::size_t count)
    {
        const std::atomic<bool> keepGoing{false};
        return recognise(samples, count, keepGoing);
    }
    // Decodes a whole utterance. Once `stop` is set (checked at least every quarter second of
    // audio) it gives up and returns kCancelled.
    virtual Text recognise(const std::int16_t *samples, std::size_t count, const std::atomic<bool> &stop) = 0;
};
