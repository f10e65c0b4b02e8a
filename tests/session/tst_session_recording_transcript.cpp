// Transcribing a saved recording from the session: the banner's cancel action while it runs,
// the link to the written transcript, and the question whether it goes to the service.
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
        rig.recordingTranscriber.completion(RecordingTranscription::Result::failure(QStringLiteral("The transcription was cancelled.")));
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

    void serviceOnlyWhenOptedInAndAsked()
    {
        using Answer = RecordingTranscriptionPrompt::Answer;
        SessionRig rig;
        rig.settings.setApiKey(QStringLiteral("sk-test"));
        rig.settings.setTranscribeModel(QStringLiteral("gpt-4o-transcribe"));
        rig.settings.setTranscriptionLanguage(QStringLiteral("de"));
        const QString wav = rig.dir.filePath(QStringLiteral("meeting_2026-11-21_14-05-09.wav"));
        rig.picker.choice = wav;

        // Off (the default): no question, on the device.
        rig.controller->transcribeRecording();
        QVERIFY(rig.prompt.questions.isEmpty());
        QCOMPARE(rig.recordingTranscriber.path, wav);
        QVERIFY(!rig.recordingTranscriber.service);

        // On: one question for the file, saying what is sent and about what it costs (10 minutes).
        rig.settings.setTranscribeAnswersWithService(true);
        rig.prompt.answer = Answer::onThisComputer;
        rig.recordingTranscriber.path.clear();
        rig.controller->transcribeRecording();
        QCOMPARE(rig.prompt.questions.size(), 1);
        QCOMPARE(rig.prompt.questions.first().title, QStringLiteral("Transcribe meeting_2026-11-21_14-05-09.wav"));
        const QString text = rig.prompt.questions.first().text;
        for (const char *phrase : {"both sides of the conversation", "gpt-4o-transcribe", "(10 minutes) that costs about $0.03"})
            QVERIFY2(text.contains(QLatin1String(phrase)), phrase);
        QCOMPARE(rig.recordingTranscriber.path, wav);
        QVERIFY(!rig.recordingTranscriber.service);

        // With OpenAI: the key, model and language of Settings; the usage in the closing banner.
        rig.prompt.answer = Answer::withService;
        rig.controller->transcribeRecording();
        QCOMPARE(rig.prompt.questions.size(), 2);
        QVERIFY(rig.recordingTranscriber.service);
        QCOMPARE(rig.recordingTranscriber.service->apiKey, QStringLiteral("sk-test"));
        QCOMPARE(rig.recordingTranscriber.service->model, QStringLiteral("gpt-4o-transcribe"));
        QCOMPARE(rig.recordingTranscriber.service->language, QStringLiteral("de"));
        QCOMPARE(rig.controller->banner(), QStringLiteral("Transcribing meeting_2026-11-21_14-05-09.wav with OpenAI…"));
        QCOMPARE(rig.controller->bannerAction(), std::optional(SessionController::BannerAction::cancelTranscription));
        rig.recordingTranscriber.progress(RecordingProgress{45, 90});
        QCOMPARE(rig.controller->banner(), QStringLiteral("Transcribing meeting_2026-11-21_14-05-09.wav — 50% (45s of 90s)"));
        const QString written = rig.dir.filePath(QStringLiteral("meeting_2026-11-21_14-05-09.recording.md"));
        const QVariantMap usage{{"type", "tokens"}, {"input_tokens", 1000}, {"output_tokens", 200}};
        rig.recordingTranscriber.completion(RecordingTranscription::Written{written, usage, 100});
        QCOMPARE(rig.controller->banner(),
                 QStringLiteral("Transcript written: meeting_2026-11-21_14-05-09.recording.md (OpenAI: 1200 tokens, $0.0045)"));
        QVERIFY(!rig.controller->bannerAction());

        // Cancel: nothing starts.
        rig.prompt.answer = Answer::cancel;
        rig.recordingTranscriber.path.clear();
        rig.controller->transcribeRecording();
        QCOMPARE(rig.prompt.questions.size(), 3);
        QVERIFY(rig.recordingTranscriber.path.isEmpty());

        // Without a key the service is not tried.
        rig.settings.setApiKey(QString());
        rig.prompt.answer = Answer::withService;
        rig.controller->transcribeRecording();
        QVERIFY(rig.recordingTranscriber.path.isEmpty());
        QCOMPARE(rig.controller->bannerAction(), std::optional(SessionController::BannerAction::openAccountSettings));
    }
};

QTEST_GUILESS_MAIN(TestSessionRecordingTranscript)
#include "tst_session_recording_transcript.moc"
