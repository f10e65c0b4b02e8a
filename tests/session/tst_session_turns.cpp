// The service's real order of events, case by case: a turn opens its card at the end of
// speech or at its response, the transcript and the answer attach to it in either order,
// follow-ups merge into the previous question with the regenerated answer in the same card,
// every question gets an answer (during another answer, after a reconnect), and the live
// question, failed transcriptions and answers that end badly show on the card.

#include "SessionFiles.h"
#include "SessionRig.h"

#include <QJsonObject>
#include <QTest>

#include <tuple>

using namespace sessionfiles;

class SessionTurnsTest : public QObject
{
    Q_OBJECT

private slots:
    void liveQuestionOnItsOwnCard()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession());

        rig.client.speechStarted(QStringLiteral("i1"));
        QVERIFY(c.isListening());
        QVERIFY(c.pairs().isEmpty());
        rig.clock.advance(2);
        rig.client.speechStopped(QStringLiteral("i1"));
        QVERIFY(!c.isListening());
        QCOMPARE(c.pairs().size(), 1);
        QVERIFY(c.pairs()[0].questionInProgress);
        QCOMPARE(c.pairs()[0].displayQuestion(), QStringLiteral("Listening…"));

        // The response is created and streams before the transcript completes.
        rig.client.created(QStringLiteral("r1"));
        rig.client.transcriptDelta(QStringLiteral("i1"), QStringLiteral("Tell me about "));
        rig.client.delta(QStringLiteral("r1"), QStringLiteral("We moved "));
        QCOMPARE(c.pairs().size(), 1);
        QCOMPARE(c.pairs()[0].displayQuestion(), QStringLiteral("Tell me about "));
        QVERIFY(c.pairs()[0].questionInProgress);
        QCOMPARE(c.pairs()[0].answer, QStringLiteral("We moved "));

        rig.client.transcript(QStringLiteral("Tell me about the migration."), QStringLiteral("i1"));
        QCOMPARE(c.pairs()[0].question, QStringLiteral("Tell me about the migration."));
        QVERIFY(!c.pairs()[0].questionInProgress);
        rig.client.answer(QStringLiteral("r1"), QStringLiteral("to Postgres."));
        QCOMPARE(rig.answers(), QStringList{QStringLiteral("We moved to Postgres.")});
        QVERIFY(c.pairs()[0].isComplete);
        QVERIFY(rig.client.regenerated.isEmpty());

        // A transcription that fails keeps the card's answer.
        rig.clock.advance(30);
        rig.client.opened(QStringLiteral("i2"), QStringLiteral("r2"));
        rig.client.delta(QStringLiteral("r2"), QStringLiteral("Happy to go deeper."));
        rig.client.transcriptFailed(QStringLiteral("i2"), QStringLiteral("audio unclear"));
        rig.client.done(QStringLiteral("r2"));
        QCOMPARE(c.pairs().size(), 2);
        QVERIFY(c.pairs()[1].questionFailed);
        QCOMPARE(c.pairs()[1].displayQuestion(), QStringLiteral("(the question could not be transcribed)"));
        QCOMPARE(c.pairs()[1].answer, QStringLiteral("Happy to go deeper."));
        QVERIFY(c.pairs()[1].isComplete);

        // An answer that ends badly keeps its text and says so.
        rig.clock.advance(30);
        rig.client.turn(QStringLiteral("i3"), QStringLiteral("r3"), QStringLiteral("Why Rust?"), QString());
        rig.client.heard(QStringLiteral("i4"), QStringLiteral("r4"), QStringLiteral("What broke?"));
        rig.client.delta(QStringLiteral("r4"), QStringLiteral("The first"));
        rig.client.ended(QStringLiteral("r4"), QStringLiteral("incomplete"), QStringLiteral("max_output_tokens"));
        rig.client.done(QStringLiteral("r4"));
        rig.client.turn(QStringLiteral("i5"), QStringLiteral("r5"), QStringLiteral("Any questions for us?"), QString());
        rig.client.ended(QStringLiteral("r5"), QStringLiteral("failed"), QStringLiteral("server_error"));
        QCOMPARE(c.pairs()[3].answer, QStringLiteral("The first"));
        QCOMPARE(c.pairs()[3].answerNote, QStringLiteral("answer cut short"));
        QVERIFY(c.pairs()[3].isComplete);
        QCOMPARE(c.pairs()[4].answerNote, QStringLiteral("the service could not answer: server_error"));
        c.stop();

        const QList<QJsonObject> failed = eventsNamed(QStringLiteral("answer_failed"));
        QCOMPARE(failed.size(), 2);
        QCOMPARE(failed[0].value(QStringLiteral("status")).toString(), QStringLiteral("incomplete"));
        QCOMPARE(failed[0].value(QStringLiteral("pair")).toString(), c.pairs()[3].id);
        QCOMPARE(failed[1].value(QStringLiteral("reason")).toString(), QStringLiteral("server_error"));
        const QString transcript = transcriptText();
        QVERIFY2(transcript.contains(QStringLiteral("**Interviewer:** (the question could not be transcribed)\n\n**Copilot:** Happy to go deeper.")), qPrintable(transcript));
        QVERIFY2(transcript.contains(QStringLiteral("**Copilot:** The first _(answer cut short)_")), qPrintable(transcript));
    }

    // Case 1: the follow-up's own response opened its card first; the transcript completes
    // later, merges into the previous question, and the regenerated answer lands there.
    void followUpMergesAfterItsOwnResponseStarted()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession(8));
        rig.client.turn(QStringLiteral("i1"), QStringLiteral("r1"), QStringLiteral("Tell me about the project."), QStringLiteral("It was a payments rewrite."));
        const QString firstID = c.pairs()[0].id;

        rig.clock.advance(3);
        rig.client.opened(QStringLiteral("i2"), QStringLiteral("r2"));
        rig.client.delta(QStringLiteral("r2"), QStringLiteral("The budget was"));
        QCOMPARE(c.pairs().size(), 2);
        rig.client.transcript(QStringLiteral("And what about the budget?"), QStringLiteral("i2"));

        const QString merged = QStringLiteral("Tell me about the project. And what about the budget?");
        QCOMPARE(c.pairs().size(), 1);
        QCOMPARE(c.pairs()[0].id, firstID);
        QCOMPARE(c.pairs()[0].question, merged);
        QVERIFY(c.pairs()[0].wasExtended);
        QCOMPARE(c.pairs()[0].answer, QString());
        QCOMPARE(rig.client.regenerated, QStringList{merged});

        // The follow-up's answer is cancelled by the regeneration; its end changes nothing.
        rig.client.delta(QStringLiteral("r2"), QStringLiteral(" tight."));
        rig.client.ended(QStringLiteral("r2"), QStringLiteral("cancelled"), QStringLiteral("client_cancelled"));
        rig.client.done(QStringLiteral("r2"));
        rig.client.requestedAnswer(QStringLiteral("r3"), QStringLiteral("Payments rewrite, on budget."));
        QCOMPARE(rig.answers(), QStringList{QStringLiteral("Payments rewrite, on budget.")});
        QVERIFY(c.pairs()[0].isComplete);
        QCOMPARE(c.pairs()[0].answerNote, QString());
        QCOMPARE(rig.client.histories.last(), (History{{merged, QStringLiteral("Payments rewrite, on budget.")}}));
        c.stop();

        QCOMPARE(eventsNamed(QStringLiteral("question")).size(), 1);
        QCOMPARE(eventsNamed(QStringLiteral("question_extended")).size(), 1);
        QCOMPARE(eventsNamed(QStringLiteral("answer_failed")).size(), 0);
        const QList<QJsonObject> done = eventsNamed(QStringLiteral("answer_done"));
        QCOMPARE(done.size(), 2);
        QCOMPARE(done[1].value(QStringLiteral("answer")).toString(), QStringLiteral("Payments rewrite, on budget."));
        QCOMPARE(done[1].value(QStringLiteral("pair")).toString(), firstID);
    }

    // Case 1, the other order: the transcript merges before the service has created the
    // follow-up's own response. That response is replaced as soon as it starts, and the
    // answer we asked for still lands in the merged card.
    void followUpMergesBeforeItsOwnResponse()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession(8));
        rig.client.turn(QStringLiteral("i1"), QStringLiteral("r1"), QStringLiteral("Walk me through the outage"), QStringLiteral("A bad deploy."));
        rig.clock.advance(2);
        rig.client.asked(QStringLiteral("i2"), QStringLiteral("What did you change afterwards?"));
        QCOMPARE(c.pairs().size(), 1);
        QVERIFY(rig.client.regenerated.isEmpty());   // waits for the follow-up's own response
        rig.client.created(QStringLiteral("r2"));
        const QString merged = QStringLiteral("Walk me through the outage What did you change afterwards?");
        QCOMPARE(rig.client.regenerated, QStringList{merged});
        rig.client.answer(QStringLiteral("r2"), QStringLiteral("Unrelated words"));
        rig.client.requestedAnswer(QStringLiteral("r3"), QStringLiteral("Canary deploys."));
        QCOMPARE(rig.answers(), QStringList{QStringLiteral("Canary deploys.")});

        // A service that never answers the follow-up: asked after a short wait.
        rig.clock.advance(1);
        rig.client.asked(QStringLiteral("i3"), QStringLiteral("and who approved that?"));
        QCOMPARE(rig.client.regenerated.size(), 1);
        rig.clock.advance(2);
        QCOMPARE(rig.client.regenerated.size(), 2);
        QCOMPARE(rig.client.regenerated.last(), merged + QStringLiteral(" and who approved that?"));
    }

    // Case 2: a question asked while an answer streams gets no response from the service;
    // it is asked when that answer has finished, never by cancelling it.
    void questionDuringAnAnswerIsAnswered()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession(0));
        rig.client.heard(QStringLiteral("i1"), QStringLiteral("r1"), QStringLiteral("Why this company?"));
        rig.client.delta(QStringLiteral("r1"), QStringLiteral("Because "));

        rig.client.asked(QStringLiteral("i2"), QStringLiteral("How soon could you start?"));
        QCOMPARE(c.pairs().size(), 2);
        QVERIFY(rig.client.regenerated.isEmpty());

        rig.client.answer(QStringLiteral("r1"), QStringLiteral("of the mission."));
        QCOMPARE(rig.client.regenerated, QStringList{QStringLiteral("How soon could you start?")});
        QCOMPARE(rig.client.histories.last(), (History{{QStringLiteral("Why this company?"), QStringLiteral("Because of the mission.")}}));

        rig.client.requestedAnswer(QStringLiteral("r2"), QStringLiteral("In four weeks."));
        QCOMPARE(rig.answers(), (QStringList{QStringLiteral("Because of the mission."), QStringLiteral("In four weeks.")}));
        QVERIFY(c.pairs()[1].isComplete);
        QCOMPARE(rig.client.histories.last().size(), 2);
    }

    // Case 3: a card left open by Stop never takes a later answer.
    void leftoverOpenCardTakesNoLaterAnswer()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession(0));
        rig.client.asked(QStringLiteral("i0"), QStringLiteral("Are we recording?"));
        c.stop();
        QVERIFY(c.pairs()[0].isComplete);
        QVERIFY(rig.startSession(0));

        rig.client.turn(QStringLiteral("i1"), QStringLiteral("r1"), QStringLiteral("First question?"), QStringLiteral("First answer."));
        rig.client.turn(QStringLiteral("i2"), QStringLiteral("r2"), QStringLiteral("Second question?"), QStringLiteral("Second answer."));
        QCOMPARE(rig.answers(), (QStringList{QString(), QStringLiteral("First answer."), QStringLiteral("Second answer.")}));
        QCOMPARE(c.pairs()[1].question, QStringLiteral("First question?"));
    }

    // Case 4: a reconnect mid-answer asks again once the new socket is configured, and the
    // answer completes in the same card.
    void reconnectMidAnswerAsksAgain()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession(0));
        rig.client.configured();
        QVERIFY(rig.client.regenerated.isEmpty());
        rig.client.turn(QStringLiteral("i1"), QStringLiteral("r1"), QStringLiteral("Done question?"), QStringLiteral("Yes."));
        rig.client.heard(QStringLiteral("i2"), QStringLiteral("r2"), QStringLiteral("What is your biggest weakness?"));
        rig.client.delta(QStringLiteral("r2"), QStringLiteral("I sometimes"));
        // A turn whose transcript was lost with the socket, and nothing on it.
        rig.client.speech(QStringLiteral("i3"));
        QCOMPARE(c.pairs().size(), 3);

        rig.client.status(RealtimeStatus::reconnecting());
        rig.client.configured();
        QCOMPARE(c.pairs().size(), 2);
        QCOMPARE(rig.client.regenerated, QStringList{QStringLiteral("What is your biggest weakness?")});
        QCOMPARE(c.pairs()[1].answer, QStringLiteral("I sometimes"));   // shown until the new answer starts
        rig.client.requestedAnswer(QStringLiteral("r9"), QStringLiteral("I over-prepare."));
        QCOMPARE(c.pairs()[1].answer, QStringLiteral("I over-prepare."));
        QVERIFY(c.pairs()[1].isComplete);
        QCOMPARE(rig.client.histories.last().size(), 2);
        c.stop();
        QCOMPARE(eventsNamed(QStringLiteral("answers_reasked")).size(), 1);
    }

    // Case 5: the question arrives after its answer completed; history is pushed again.
    void questionAfterItsAnswerIsSeeded()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession());
        rig.client.opened(QStringLiteral("i1"), QStringLiteral("r1"));
        rig.client.answer(QStringLiteral("r1"), QStringLiteral("Seven years."));
        QVERIFY(c.pairs()[0].isComplete);
        QVERIFY(c.pairs()[0].questionInProgress);
        rig.client.transcript(QStringLiteral("How long have you used Go?"), QStringLiteral("i1"));
        QCOMPARE(c.pairs().size(), 1);
        QCOMPARE(rig.client.histories.last(), (History{{QStringLiteral("How long have you used Go?"), QStringLiteral("Seven years.")}}));
        // On disk already, before Stop.
        QVERIFY2(transcriptText().contains(QStringLiteral("**Interviewer:** How long have you used Go?\n\n**Copilot:** Seven years.")), qPrintable(transcriptText()));
    }

    // Case 10: text for a finished response, or one beyond the cap, is dropped and counted.
    void deltasAreBounded()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession());
        rig.client.turn(QStringLiteral("i1"), QStringLiteral("r1"), QStringLiteral("Q one?"), QStringLiteral("A one."));
        rig.client.delta(QStringLiteral("r1"), QStringLiteral("stray 12 b"));
        rig.client.delta(QStringLiteral("r1"), QString(1000, QLatin1Char('x')));
        rig.client.turn(QStringLiteral("i2"), QStringLiteral("r2"), QStringLiteral("Q two?"), QStringLiteral("A two."));
        QCOMPARE(rig.answers(), (QStringList{QStringLiteral("A one."), QStringLiteral("A two.")}));

        rig.client.opened(QStringLiteral("i3"), QStringLiteral("r3"));
        const QString huge(10 * 1024 * 1024, QLatin1Char('y'));
        rig.client.delta(QStringLiteral("r3"), huge);
        rig.client.answer(QStringLiteral("r3"), huge);
        QCOMPARE(c.pairs()[2].answer.size(), SessionController::maxAnswerLength);
        QCOMPARE(c.pairs()[2].answerNote, QStringLiteral("answer truncated"));
        QCOMPARE(c.droppedDeltas(), 4);
        c.stop();

        const QList<QJsonObject> dropped = eventsNamed(QStringLiteral("delta_dropped"));
        QCOMPARE(dropped.size(), 2);   // one line per response
        QCOMPARE(dropped[0].value(QStringLiteral("response")).toString(), QStringLiteral("r1"));
        const QList<QJsonObject> totals = eventsNamed(QStringLiteral("deltas_dropped"));
        QCOMPARE(totals.size(), 1);
        QCOMPARE(totals[0].value(QStringLiteral("count")).toInt(), 4);
        QCOMPARE(qint64(totals[0].value(QStringLiteral("chars")).toDouble()),
                 qint64(10 + 1000 + 2 * huge.size() - SessionController::maxAnswerLength));
        QCOMPARE(eventsNamed(QStringLiteral("answer_truncated")).size(), 1);
    }

    // A turn with nothing to transcribe (a cough): the service bills the transcription but
    // sends no text; its card and its answer go.
    void noiseLeavesNoCard()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession());
        rig.client.turn(QStringLiteral("i1"), QStringLiteral("r1"), QStringLiteral("Ready?"), QStringLiteral("Yes."));
        rig.client.opened(QStringLiteral("i2"), QStringLiteral("r2"));
        QCOMPARE(c.pairs().size(), 2);
        rig.client.transcribedSeconds(QStringLiteral("i2"), 0.4);
        QCOMPARE(c.pairs().size(), 1);
        rig.client.answer(QStringLiteral("r2"), QStringLiteral("Could you repeat that?"));
        QCOMPARE(rig.answers(), QStringList{QStringLiteral("Yes.")});
        QVERIFY(rig.client.regenerated.isEmpty());
    }

    // A question the service should have answered by itself but did not (it was still busy
    // as far as it knew): asked for after a few seconds.
    void unansweredTurnIsAskedForAfterAWhile()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession(0));
        rig.client.asked(QStringLiteral("i1"), QStringLiteral("Where do you see yourself in five years?"));
        rig.clock.advance(4.9);
        QVERIFY(rig.client.regenerated.isEmpty());
        rig.clock.advance(0.1);
        QCOMPARE(rig.client.regenerated, QStringList{QStringLiteral("Where do you see yourself in five years?")});
        rig.client.requestedAnswer(QStringLiteral("r1"), QStringLiteral("Leading a platform team."));
        QCOMPARE(c.pairs()[0].answer, QStringLiteral("Leading a platform team."));

        // Our request that is never answered is made again, then given up with a note.
        rig.client.asked(QStringLiteral("i2"), QStringLiteral("Any questions?"));
        rig.clock.advance(5);
        QCOMPARE(rig.client.regenerated.size(), 2);
        rig.clock.advance(20);
        QCOMPARE(rig.client.regenerated.size(), 3);
        rig.clock.advance(20);
        QCOMPARE(rig.client.regenerated.size(), 3);
        QVERIFY(c.pairs()[1].isComplete);
        QCOMPARE(c.pairs()[1].answerNote, QStringLiteral("the service could not answer: no response"));
    }

    // Text, ends and completions for a response never announced on this socket are dropped
    // and counted once; they neither open nor claim a card, so later answers stay on theirs.
    void unannouncedResponsesNeverWrite()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession());
        rig.client.turn(QStringLiteral("i1"), QStringLiteral("r1"), QStringLiteral("Tell me about yourself."), QStringLiteral("I build payment systems."));
        rig.clock.advance(30);
        rig.client.strayDelta(QStringLiteral("R_stray"), QStringLiteral("stray text"));
        rig.client.strayDelta(QStringLiteral("R_stray"), QStringLiteral("more stray text"));
        rig.client.strayDone(QStringLiteral("R_stray"));
        QCOMPARE(c.pairs().size(), 1);
        rig.client.turn(QStringLiteral("i2"), QStringLiteral("r2"), QStringLiteral("Why do you want to work here?"), QStringLiteral("Your ledger team."));
        rig.clock.advance(30);
        // A response of the old socket, after a reconnect, is as unknown as any.
        rig.client.configured();
        rig.client.strayDelta(QStringLiteral("r_old"), QStringLiteral("late"));
        rig.client.turn(QStringLiteral("i3"), QStringLiteral("r3"), QStringLiteral("Any questions for us?"), QStringLiteral("How do you deploy?"));

        QCOMPARE(rig.answers(), (QStringList{QStringLiteral("I build payment systems."), QStringLiteral("Your ledger team."), QStringLiteral("How do you deploy?")}));
        QCOMPARE(c.pairs()[1].question, QStringLiteral("Why do you want to work here?"));
        QCOMPARE(c.droppedDeltas(), 4);
        QCOMPARE(rig.client.histories.last().size(), 3);
        QCOMPARE(rig.client.histories.last()[1].answer, QStringLiteral("Your ledger team."));
        c.stop();
        QStringList unknown;
        for (const QJsonObject &event : eventsNamed(QStringLiteral("delta_dropped"))) {
            QCOMPARE(event.value(QStringLiteral("reason")).toString(), QStringLiteral("unknown_response"));
            unknown << event.value(QStringLiteral("response")).toString();
        }
        QCOMPARE(unknown, (QStringList{QStringLiteral("R_stray"), QStringLiteral("r_old")}));
    }

    // Text dropped at the cap always leaves the note and one event, whatever the delta sizes.
    void truncationIsNotedWhateverTheDeltaSizes_data()
    {
        QTest::addColumn<int>("deltaSize");
        QTest::newRow("exact fit, then more") << 2;        // the cap is reached exactly; the next delta is dropped whole
        QTest::newRow("one delta crosses the cap") << 3000; // cut part-way
    }

    void truncationIsNotedWhateverTheDeltaSizes()
    {
        QFETCH(int, deltaSize);
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession());
        rig.client.transcript(QStringLiteral("Describe the system in detail."));
        const QString piece(deltaSize, QLatin1Char('x'));
        for (qsizetype sent = 0; sent < SessionController::maxAnswerLength + 3 * deltaSize; sent += deltaSize) {
            rig.client.delta(QStringLiteral("r1"), piece);
        }
        rig.client.done(QStringLiteral("r1"));
        QCOMPARE(c.pairs()[0].answer.size(), SessionController::maxAnswerLength);
        QCOMPARE(c.pairs()[0].answerNote, QStringLiteral("answer truncated"));
        c.stop();
        QCOMPARE(eventsNamed(QStringLiteral("answer_truncated")).size(), 1);
        QVERIFY(transcriptText().contains(QStringLiteral(" _(answer truncated)_")));
    }

    // A question whose transcript never comes reads "(the question was not transcribed)" once
    // its answer is done and 5 s pass or the next turn starts; a late transcript replaces it.
    void questionNeverTranscribed()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession());
        rig.client.speech(QStringLiteral("i1"));
        rig.client.answer(QStringLiteral("r1"), QStringLiteral("First answer."));
        rig.clock.advance(4.9);
        QCOMPARE(c.pairs()[0].displayQuestion(), QStringLiteral("Listening…"));
        rig.clock.advance(0.1);
        QCOMPARE(c.pairs()[0].displayQuestion(), QStringLiteral("(the question was not transcribed)"));
        QVERIFY(transcriptText().contains(QStringLiteral("**Interviewer:** (the question was not transcribed)\n\n**Copilot:** First answer.")));

        // The next turn's speech ends the wait at once.
        rig.client.speech(QStringLiteral("i2"));
        rig.client.answer(QStringLiteral("r2"), QStringLiteral("Second answer."));
        rig.client.speechStarted(QStringLiteral("i3"));
        QCOMPARE(c.pairs()[1].displayQuestion(), QStringLiteral("(the question was not transcribed)"));

        // Late, the first transcript still lands on its card.
        rig.client.transcript(QStringLiteral("What did you do last year?"), QStringLiteral("i1"));
        QCOMPARE(c.pairs().size(), 2);
        QCOMPARE(c.pairs()[0].displayQuestion(), QStringLiteral("What did you do last year?"));
        QVERIFY(!c.pairs()[0].questionMissing);
        QCOMPARE(rig.client.histories.last()[0].question, QStringLiteral("What did you do last year?"));
        c.stop();
        QCOMPARE(eventsNamed(QStringLiteral("question_missing")).size(), 2);
    }

    // A transient failure is asked again once, after the answer that streams meanwhile, and
    // lands on its card; a second failure keeps the note; other endings are never retried.
    void transientFailureIsRetriedOnce()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession(0));
        // A turn whose response ends as `status` (done follows).
        const auto endingTurn = [&rig](const QString &n, const QString &question, const QString &status, const QString &reason,
                                       bool transient) {
            rig.client.heard(QStringLiteral("i") + n, QStringLiteral("r") + n, question);
            rig.client.delta(QStringLiteral("r") + n, QStringLiteral("Partly"));
            rig.client.ended(QStringLiteral("r") + n, status, reason, transient);
        };
        rig.client.turn(QStringLiteral("i1"), QStringLiteral("r1"), QStringLiteral("Why payments?"), QStringLiteral("Money moves."));
        endingTurn(QStringLiteral("2"), QStringLiteral("What is your biggest weakness?"), QStringLiteral("failed"), QStringLiteral("The server had an error"), true);
        // The next turn's answer already streams when the failed one is done.
        rig.client.opened(QStringLiteral("i3"), QStringLiteral("r3"));
        rig.client.done(QStringLiteral("r2"));
        QCOMPARE(c.pairs()[1].answerNote, QStringLiteral("the service could not answer: The server had an error"));
        QVERIFY(!c.pairs()[1].isComplete);
        QCOMPARE(rig.client.histories.last().size(), 1);   // not in the history until answered
        rig.client.transcript(QStringLiteral("Where are you based?"), QStringLiteral("i3"));
        rig.client.delta(QStringLiteral("r3"), QStringLiteral("Berlin."));
        QVERIFY(rig.client.regenerated.isEmpty());   // not while r3 streams
        rig.client.done(QStringLiteral("r3"));
        QCOMPARE(rig.client.regenerated, QStringList{QStringLiteral("What is your biggest weakness?")});
        rig.client.created(QStringLiteral("r4"), true);
        QCOMPARE(c.pairs()[1].answerNote, QString());
        rig.client.delta(QStringLiteral("r4"), QStringLiteral("I over-prepare."));
        rig.client.ended(QStringLiteral("r4"), QStringLiteral("failed"), QStringLiteral("The server had an error"), true);
        rig.client.done(QStringLiteral("r4"));
        QCOMPARE(rig.client.regenerated.size(), 1);   // once only
        QCOMPARE(c.pairs()[1].answer, QStringLiteral("I over-prepare."));
        QCOMPARE(c.pairs()[1].answerNote, QStringLiteral("the service could not answer: The server had an error"));
        QVERIFY(c.pairs()[1].isComplete);
        QCOMPARE(c.pairs()[2].answer, QStringLiteral("Berlin."));
        QCOMPARE(rig.client.histories.last()[1].answer, QStringLiteral("I over-prepare."));

        // Token limits, content filters and failures that are not passing are not asked again.
        for (const auto &[n, status, reason] : {std::tuple{5, "incomplete", "max_output_tokens"},
                                                 std::tuple{6, "incomplete", "content_filter"},
                                                 std::tuple{7, "failed", "invalid_value"}}) {
            endingTurn(QString::number(n), QStringLiteral("Question %1?").arg(n), QString::fromLatin1(status),
                       QString::fromLatin1(reason), false);
            rig.client.done(QStringLiteral("r%1").arg(n));
        }
        QCOMPARE(rig.client.regenerated.size(), 1);
        QVERIFY(c.pairs().last().isComplete);
        c.stop();
        const QList<QJsonObject> retried = eventsNamed(QStringLiteral("answer_retried"));
        QCOMPARE(retried.size(), 1);
        QCOMPARE(retried[0].value(QStringLiteral("pair")).toString(), c.pairs()[1].id);
    }
};

QTEST_GUILESS_MAIN(SessionTurnsTest)
#include "tst_session_turns.moc"
