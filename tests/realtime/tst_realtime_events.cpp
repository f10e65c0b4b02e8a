// The service's events as the realistic simulator sends them, through the client to its owner:
// speech start and stop, the question transcribed in pieces while its answer already streams,
// transcription usage and failures, answers that end early, and the configured signal of
// every new socket.

#include "RealtimeTestBase.h"

namespace {

SimTurn turnOf(const QString &question, const QString &answer)
{
    SimTurn turn;
    turn.question = question;
    turn.answer = answer;
    turn.deltaDelayMs = 10;
    return turn;
}

} // namespace

class TestRealtimeEvents : public RealtimeTestBase
{
    Q_OBJECT
private slots:
    void init()
    {
        setUpSimulator();
        sim->setRealistic(true);
        makeClient();
    }
    void cleanup() { tearDown(); }

    void aTurnArrivesAsTheServiceSendsIt()
    {
        RealtimeClient::Timing timing = fastTiming();
        timing.cycleMs = 60000;
        makeClient(timing);
        startAndWaitConnected();
        QTRY_COMPARE_WITH_TIMEOUT(probe.configured, 1, kWait);
        QCOMPARE(probe.order.mid(probe.order.size() - 2), (QStringList{"status", "configured"}));

        const QString question = QStringLiteral("How do you handle disagreement in a code review?");
        const QString answer = QStringLiteral("I ask what problem the other person sees, agree on the goal, "
                                              "then pick the simplest change that meets it.");
        probe.order.clear();
        QVERIFY(sim->triggerTurn(turnOf(question, answer)));
        QTRY_COMPARE_WITH_TIMEOUT(probe.done.size(), 1, kWait);
        QTRY_COMPARE_WITH_TIMEOUT(probe.transcripts.size(), 1, kWait);

        const QString itemID = probe.transcripts[0].first;
        QVERIFY(!itemID.isEmpty());
        QCOMPARE(probe.speech, (QStringList{"started " + itemID, "stopped " + itemID}));
        QCOMPARE(probe.transcripts[0].second, question);
        QString pieces;
        for (const auto &delta : std::as_const(probe.transcriptDeltas)) {
            QCOMPARE(delta.first, itemID);
            pieces += delta.second;
        }
        QCOMPARE(pieces, question);
        QVERIFY(probe.transcriptDeltas.size() >= 3);
        // Billed separately, by the transcription model.
        QCOMPARE(probe.transcriptionUsages.size(), 1);
        QCOMPARE(probe.transcriptionUsages[0].first, itemID);
        QCOMPARE(probe.transcriptionUsages[0].second.value("type").toString(), QStringLiteral("tokens"));
        QVERIFY(probe.transcriptionUsages[0].second.value("input_tokens").toInt() > 0);

        // The answer starts first; the question completes while it streams.
        const QString responseID = probe.done[0];
        QCOMPARE(probe.created, (QList<QPair<QString, bool>>{{responseID, false}}));
        QCOMPARE(probe.answer(responseID), answer);
        QVERIFY(probe.ended.isEmpty());
        const auto at = [this](const char *what) { return probe.order.indexOf(QLatin1String(what)); };
        QVERIFY(at("speech") < at("created"));
        QVERIFY(at("created") < at("transcript-delta"));
        QCOMPARE(probe.order.at(at("created") + 1), QStringLiteral("delta")); // the empty delta that opens the answer
        QVERIFY(at("transcript") < probe.order.lastIndexOf("delta"));
        QCOMPARE(probe.order.at(at("transcript") + 1), QStringLiteral("transcription-usage"));
        QCOMPARE(probe.order.mid(probe.order.size() - 2), (QStringList{"usage", "done"}));
        QCOMPARE(probe.offThreadCalls, 0);

        // Every new socket is announced once it is configured.
        QVERIFY(sim->dropConnection());
        QTRY_COMPARE_WITH_TIMEOUT(probe.configured, 2, kWait);
    }

    void answersThatEndEarlyAndFailedTranscriptionsAreReported()
    {
        startAndWaitConnected();
        SimTurn incomplete = turnOf(QStringLiteral("Walk me through your last project."),
                                    QStringLiteral("We rebuilt the billing pipeline in three phases over six months."));
        incomplete.responseStatus = QStringLiteral("incomplete");
        SimTurn failed = turnOf(QStringLiteral("What are your salary expectations?"), QStringLiteral("Market rate for the role."));
        failed.responseStatus = QStringLiteral("failed");
        SimTurn unheard = turnOf(QStringLiteral("Mumble?"), QStringLiteral("Could you repeat that?"));
        unheard.transcriptionFails = true;

        for (const SimTurn &turn : {incomplete, failed, unheard}) {
            const int before = int(probe.done.size());
            QVERIFY(sim->triggerTurn(turn));
            QTRY_COMPARE_WITH_TIMEOUT(probe.done.size(), before + 1, kWait);
        }
        QTRY_COMPARE_WITH_TIMEOUT(probe.transcriptFailures.size(), 1, kWait);
        QCOMPARE(probe.ended, (QStringList{probe.done[0] + " incomplete max_output_tokens",
                                           probe.done[1] + " failed The server had an error while processing your request. (transient)"}));
        QVERIFY(probe.answer(probe.done[0]).size() < incomplete.answer.size());
        // After the usage, before the end of the response.
        const int ended = int(probe.order.indexOf("ended"));
        QCOMPARE(probe.order.mid(ended - 1, 3), (QStringList{"usage", "ended", "done"}));
        QCOMPARE(probe.transcriptFailures[0].second, QStringLiteral("The audio could not be transcribed."));
        QCOMPARE(probe.transcriptFailures[0].first, probe.speech.last().section(' ', 1));
        QCOMPARE(probe.transcripts.size(), 2);
        QCOMPARE(probe.logsContaining("Transcription failed: The audio could not be transcribed."), 1);
    }

    void aRegeneratedAnswerIsMarkedAsRequested()
    {
        startAndWaitConnected();
        SimTurn turn = turnOf(QStringLiteral("Tell me about a project."), QString("word ").repeated(120).trimmed());
        turn.deltaDelayMs = 40;
        QVERIFY(sim->triggerTurn(turn));
        QTRY_VERIFY_WITH_TIMEOUT(probe.deltas.size() >= 3, kWait);
        client->regenerate(QStringLiteral("Tell me about a project, and what you learned."));
        QTRY_COMPARE_WITH_TIMEOUT(probe.done.size(), 2, kWait);
        QCOMPARE(probe.created.size(), 2);
        QCOMPARE(probe.created[0], qMakePair(probe.done[0], false));
        QCOMPARE(probe.created[1], qMakePair(probe.done[1], true));
        QCOMPARE(probe.ended, QStringList{probe.done[0] + " cancelled client_cancelled"});
    }

    // With interrupt_response false (as the client configures it) a question that ends while an
    // answer streams is transcribed but gets no answer of its own.
    void aTurnDuringAnAnswerGetsNoAutomaticAnswer()
    {
        startAndWaitConnected();
        SimTurn first = turnOf(QStringLiteral("Describe your ideal team."), QString("word ").repeated(120).trimmed());
        first.deltaDelayMs = 40;
        QVERIFY(sim->triggerTurn(first));
        QTRY_VERIFY_WITH_TIMEOUT(probe.deltas.size() >= 3, kWait);
        QVERIFY(sim->triggerTurn(turnOf(QStringLiteral("And the worst one?"), QStringLiteral("Unused."))));
        QTRY_COMPARE_WITH_TIMEOUT(probe.transcripts.size(), 2, kWait);
        QVERIFY(probe.done.isEmpty()); // the second question was transcribed while the first answer streamed
        QTRY_COMPARE_WITH_TIMEOUT(probe.done.size(), 1, kWait);
        QTest::qWait(300);
        QCOMPARE(probe.created.size(), 1);
        QCOMPARE(probe.transcripts[1].second, QStringLiteral("And the worst one?"));
    }
};

QTEST_GUILESS_MAIN(TestRealtimeEvents)
#include "tst_realtime_events.moc"
