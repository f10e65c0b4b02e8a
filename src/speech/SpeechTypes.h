#pragma once

#include <QString>

// Whether on-device speech recognition can be used.
struct SpeechAvailability
{
    enum class Kind { unsupported, ready, denied };

    Kind kind = Kind::unsupported;
    QString message;   // only for Kind::unsupported

    static SpeechAvailability ready() { return {Kind::ready, {}}; }
    static SpeechAvailability denied() { return {Kind::denied, {}}; }
    static SpeechAvailability unsupported(const QString &message) { return {Kind::unsupported, message}; }

    friend bool operator==(const SpeechAvailability &, const SpeechAvailability &) = default;
};

// Progress of transcribing a saved recording: seconds of audio processed, and its length.
struct RecordingProgress
{
    double secondsDone = 0;
    double secondsTotal = 0;
};
