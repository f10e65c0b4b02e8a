// The user's side in a session: the answer clock driven by the microphone, transcribed
// segments joined on one card, the placeholder card, and transcription switched off.

#include "SessionFiles.h"
#include "SessionRig.h"

#include <QTest>

class SessionSpeakingTest : public QObject
{
    Q_OBJECT

private slots:
    // The answer clock's rules: tst_session_answer_clock. Here: what drives it in a session.
    void answerClockInASession()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession());

        rig.audio.levels(0.045f);
        QVERIFY(c.isSpeaking());
        QVERIFY(c.isAnswering());
        QCOMPARE(c.micLevel(), 0.045f);
        rig.clock.advance(2.0);
        rig.audio.levels(0.01f);
        QVERIFY(!c.isSpeaking());
        QVERIFY(c.isAnswering());   // the answer clock keeps running
        QCOMPARE(c.speakingElapsed(), 2.0);

        // The other side takes over: the answer's length is kept.
        rig.clock.advance(1.0);
        rig.client.transcript(QStringLiteral("Thanks. Next question."));
        QVERIFY(!c.isAnswering());
        QCOMPARE(c.lastAnswerDuration(), std::optional<double>(3.0));
        QCOMPARE(c.speakingElapsed(), 0.0);

        // A question while the user is not answering leaves the last duration alone.
        rig.client.transcript(QStringLiteral("Anything else?"));
        QCOMPARE(c.lastAnswerDuration(), std::optional<double>(3.0));

        rig.audio.levels(0.5f);
        QCOMPARE(c.lastAnswerDuration(), std::nullopt);
        c.stop();
        QVERIFY(!c.isAnswering());
        QCOMPARE(c.lastAnswerDuration(), std::nullopt);
        rig.audio.levels(0.5f);   // no session: ignored
        QVERIFY(!c.isSpeaking());
    }

    void transcriberExpectsTheWordsOfTheUsersDocuments()
    {
        SessionRig rig;
        rig.settings.setTranscribeMyAnswers(true);
        rig.prepareSettings();
        rig.settings.setJobDescription(QStringLiteral("Staff engineer, Payments Platform"));
        rig.settings.setContextText(QStringLiteral("Migrated billing from Oracle to PostgreSQL"));
        rig.settings.setInterviewers({Interviewer(QUuid::createUuid(), QStringLiteral("Priya Raman"), QStringLiteral("Director"))});
        rig.controller->start();
        rig.settle();
        QVERIFY(rig.controller->isSessionActive());
        for (const char *expected : {"Payments Platform", "Oracle to PostgreSQL", "Priya Raman", "Director"})
            QVERIFY2(rig.mic.contextText.contains(QLatin1String(expected)), qPrintable(rig.mic.contextText));
    }

    void segmentsJoinOnOneCard()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.settings.setTranscribeMyAnswers(true);
        QVERIFY(rig.startSession());
        rig.client.transcript(QStringLiteral("Tell me about a project you led."));

        rig.audio.levels(0.2f);
        QCOMPARE(rig.mic.beginCount, 1);
        QVERIFY(c.pairs()[0].myAnswerInProgress);
        rig.mic.partial(QStringLiteral("I led"));
        QCOMPARE(c.pairs()[0].myAnswer, QStringLiteral("I led"));
        rig.mic.partial(QStringLiteral("I led the ledger"));   // partials replace, never append
        QCOMPARE(c.pairs()[0].myAnswer, QStringLiteral("I led the ledger"));

        rig.clock.advance(3.0);
        rig.audio.levels(0.0f);
        QVERIFY(!c.isSpeaking());
        QCOMPARE(rig.mic.endCount, 1);
        rig.mic.final(QStringLiteral("I led the ledger migration"));
        QVERIFY(c.pairs()[0].myAnswerInProgress);   // still answering

        rig.audio.levels(0.3f);
        QCOMPARE(rig.mic.beginCount, 2);
        rig.mic.partial(QStringLiteral("over two"));
        QCOMPARE(c.pairs()[0].myAnswer, QStringLiteral("I led the ledger migration over two"));

        // A segment that ended on its own (with its final text) reopens while the user keeps
        // talking.
        rig.mic.final(QStringLiteral("over two"));
        rig.mic.segmentRunning = false;
        rig.clock.advance(0.5);
        rig.audio.levels(0.3f);
        QCOMPARE(rig.mic.beginCount, 3);
        rig.mic.final(QStringLiteral("quarters"));
        QCOMPARE(c.pairs()[0].myAnswer, QStringLiteral("I led the ledger migration over two quarters"));

        // One clock from the first voice, refreshed five times a second: the tick at 3.8 s.
        rig.clock.advance(0.3);
        QCOMPARE(c.speakingElapsed(), 3.8);

        rig.client.transcript(QStringLiteral("What would you change?"));
        QCOMPARE(c.pairs().size(), 2);
        QVERIFY(!c.pairs()[0].myAnswerInProgress);
        QCOMPARE(c.pairs()[0].myAnswer, QStringLiteral("I led the ledger migration over two quarters"));
        QCOMPARE(c.pairs()[1].myAnswer, QString());
    }

    void placeholderCardWhenTheUserSpeaksFirst()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.settings.setTranscribeMyAnswers(true);
        QVERIFY(rig.startSession());

        rig.audio.levels(0.2f);
        QCOMPARE(c.pairs().size(), 1);
        QVERIFY(c.pairs()[0].isComplete);
        QCOMPARE(c.pairs()[0].question, QString());
        rig.mic.final(QStringLiteral("Hello everyone"));
        QCOMPARE(c.pairs()[0].myAnswer, QStringLiteral("Hello everyone"));

        // The first question opens its own card: the placeholder holds the user's words.
        rig.client.transcript(QStringLiteral("Shall we begin?"));
        QCOMPARE(rig.questions(), (QStringList{QString(), QStringLiteral("Shall we begin?")}));

        // A placeholder that stayed empty goes with the next completion.
        SessionRig quiet;
        quiet.settings.setTranscribeMyAnswers(true);
        QVERIFY(quiet.startSession());
        quiet.audio.levels(0.2f);
        QCOMPARE(quiet.controller->pairs().size(), 1);
        quiet.clock.advance(3);
        quiet.audio.levels(0.0f);
        quiet.client.transcript(QStringLiteral("Can you hear me?"));   // fills the empty placeholder
        QCOMPARE(quiet.controller->pairs().size(), 1);
        QCOMPARE(quiet.controller->pairs()[0].question, QStringLiteral("Can you hear me?"));
    }

    void transcriptionOff()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.settings.setTranscribeMyAnswers(false);
        QVERIFY(rig.startSession());

        rig.audio.levels(0.2f);
        QVERIFY(c.isSpeaking());
        QVERIFY(c.isAnswering());
        QVERIFY(c.pairs().isEmpty());   // no placeholder
        rig.client.transcript(QStringLiteral("Why this company?"));
        rig.audio.levels(0.2f);
        rig.clock.advance(2.0);
        rig.audio.levels(0.0f);
        QVERIFY(!c.isSpeaking());
        rig.mic.final(QStringLiteral("stray words"));
        QCOMPARE(rig.mic.beginCount, 0);
        QCOMPARE(c.pairs()[0].myAnswer, QString());
        QVERIFY(!c.pairs()[0].myAnswerInProgress);
    }

    // Case 6: Stop while the user speaks ends the answer on its card and records it.
    void stopWhileTheUserSpeaks()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.settings.setTranscribeMyAnswers(true);
        QVERIFY(rig.startSession());
        rig.client.transcript(QStringLiteral("Why should we hire you?"));
        rig.audio.levels(0.3f);
        rig.mic.final(QStringLiteral("Because I ship"));
        QVERIFY(c.pairs()[0].myAnswerInProgress);
        rig.clock.advance(1.5);
        c.stop();
        QVERIFY(!c.pairs()[0].myAnswerInProgress);
        QCOMPARE(c.pairs()[0].myAnswer, QStringLiteral("Because I ship"));
        const QString events = sessionfiles::eventsText();
        QVERIFY2(events.contains(QStringLiteral(R"({"event":"you_stopped","pair":")") + c.pairs()[0].id
                                 + QStringLiteral(R"(","seconds":1.5,"t":1.5,"text":"Because I ship","words":3})")),
                 qPrintable(events));
    }

    // Case 9: a question heard while the user is still speaking says so.
    void questionWhileTheUserSpeaks()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession());
        rig.audio.levels(0.3f);
        QVERIFY(c.isSpeaking());
        rig.client.transcript(QStringLiteral("Sorry to interrupt, one more thing?"));
        QVERIFY(!c.isAnswering());
        c.stop();
        QVERIFY(sessionfiles::eventsText().contains(QStringLiteral(R"("you_were_speaking":true)")));
    }
};

QTEST_GUILESS_MAIN(SessionSpeakingTest)
#include "tst_session_speaking.moc"
