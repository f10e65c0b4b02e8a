#pragma once

#include "review/SessionReview.h"

#include <QCoreApplication>
#include <QList>
#include <QString>

#include <optional>

// Speech in a session's stereo recording (16-bit PCM WAV; left the microphone, right the
// meeting), found by loudness: 20 ms windows louder than the channel's quiet level by 15 dB
// (and than -55 dBFS) are speech; pauses under half a second join their neighbours, and
// bursts under a quarter of a second are dropped. An estimate for sessions whose events log
// does not record when the interviewer spoke.
class RecordingActivity
{
    Q_DECLARE_TR_FUNCTIONS(RecordingActivity)

public:
    struct Spans
    {
        QList<SessionReview::Span> microphone;
        QList<SessionReview::Span> meeting;
        double seconds = 0;
    };

    // Nothing (and the reason in *error) when the file is not such a recording.
    static std::optional<Spans> read(const QString &wavPath, QString *error = nullptr);

    // The recording of the session whose events log is `eventsPath`: "meeting_<stamp>.wav",
    // or one started up to half a minute after the log (the recording names itself when its
    // capture starts). Empty when there is none.
    static QString recordingFor(const QString &eventsPath);

    // The spans of one channel's window levels (dBFS), `window` seconds each.
    static QList<SessionReview::Span> spans(const QList<float> &levels, double window);
};
