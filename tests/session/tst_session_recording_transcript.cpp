// Transcribing a saved recording from the session: the banner's cancel action while it runs,
// and the link to the written transcript.
#include "SessionRig.h"

#include <QTest>

class TestSessionRecordingTranscript : public QObject
{
    Q_OBJECT

private slots:
    void cancelWhileRunningThenLinkWhenWritten()
    {
        SessionRig rig;
        const QString wav = rig.dir.filePath(QStringLiteral("meeting_2026-11-21_14-05-09.wav"));
        rig.picker.choice = wav;
        rig.controller->transcribeRecording();
        QCOMPARE(rig.recordingTranscriber.path, wav);
        QCOMPARE(rig.controller->bannerAction(), std::optional(SessionController::BannerAction::cancelTranscription));
        rig.recordingTranscriber.progress(RecordingProgress{45, 90});
        QCOMPARE(rig.controller->banner(), QStringLiteral("Transcribing meeting_2026-11-21_14-05-09.wav — 50% (45s of 90s)"));
        QCOMPARE(rig.controller->bannerAction(), std::optional(SessionController::BannerAction::cancelTranscription));

        rig.controller->cancelRecordingTranscription();
        QCOMPARE(rig.recordingTranscriber.cancelCount, 1);
        rig.recordingTranscriber.completion(RecordingTranscription::Failed{QStringLiteral("The transcription was cancelled.")});
        QCOMPARE(rig.controller->banner(), QStringLiteral("Transcription failed: The transcription was cancelled."));
        QVERIFY(!rig.controller->bannerAction());
        QVERIFY(rig.controller->bannerLinks().isEmpty());

        // Again, to the end: the banner links the transcript, which does not replace the session's.
        rig.controller->transcribeRecording();
        const QString written = rig.dir.filePath(QStringLiteral("meeting_2026-11-21_14-05-09.recording.md"));
        rig.recordingTranscriber.completion(RecordingTranscription::Written{written});
        QCOMPARE(rig.controller->banner(), QStringLiteral("Transcript written: meeting_2026-11-21_14-05-09.recording.md"));
        QVERIFY(!rig.controller->bannerAction());
        QCOMPARE(rig.controller->bannerLinks().size(), 1);
        QCOMPARE(rig.controller->bannerLinks().first().url, QUrl::fromLocalFile(written));
    }
};

QTEST_GUILESS_MAIN(TestSessionRecordingTranscript)
#include "tst_session_recording_transcript.moc"
