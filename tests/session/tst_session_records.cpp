// Session records: the events file and the Markdown transcript of a whole session, line for
// line; token costs and the cost summary; silence when no log is open; a folder that cannot
// be written.

#include "SessionFiles.h"
#include "SessionRig.h"

#include "session/CostModel.h"
#include "session/SessionLog.h"
#include "session/TextRules.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <cerrno>
#include <csignal>

#include <sys/resource.h>

namespace {

// Lowers the largest file this process may write while it lives (writes beyond it fail with
// EFBIG instead of raising SIGXFSZ).
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_saved);
        rlimit lowered = m_saved;
        lowered.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &lowered);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &m_saved); }
    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;

private:
    rlimit m_saved{};
};

QStringList lines(const QString &text)
{
    QStringList out = text.split(QLatin1Char('\n'));
    if (!out.isEmpty() && out.last().isEmpty()) {
        out.removeLast();
    }
    return out;
}

} // namespace

using namespace sessionfiles;

class SessionRecordsTest : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        QDir(SessionController::sessionFolder()).removeRecursively();
        QFile::remove(SessionController::sessionFolder());
    }

    void aSessionWritesItsEventsAndTranscript()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.settings.setTranscribeMyAnswers(true);
        QVERIFY(rig.startSession());

        rig.clock.advance(1.0);
        rig.client.transcript(QStringLiteral("Tell me about a project you led."));
        rig.clock.advance(0.25);
        rig.client.delta(QStringLiteral("r1"), QStringLiteral("We shipped "));
        rig.client.delta(QStringLiteral("r1"), QStringLiteral("it on time."));
        rig.clock.advance(0.25);
        rig.client.done(QStringLiteral("r1"));
        rig.client.usage(QVariantMap{
            {QStringLiteral("input_token_details"),
             QVariantMap{{QStringLiteral("audio_tokens"), 1000},
                         {QStringLiteral("text_tokens"), 200},
                         {QStringLiteral("cached_tokens"), 100},
                         {QStringLiteral("cached_tokens_details"), QVariantMap{{QStringLiteral("audio_tokens"), 0},
                                                                               {QStringLiteral("text_tokens"), 100}}}}},
            {QStringLiteral("output_token_details"), QVariantMap{{QStringLiteral("text_tokens"), 50}, {QStringLiteral("audio_tokens"), 0}}}});

        rig.clock.advance(0.5);
        rig.audio.levels(0.3f);
        rig.mic.final(QStringLiteral("I led the migration"));
        rig.clock.advance(2.5);
        rig.audio.levels(0.0f);
        rig.clock.advance(0.5);
        rig.client.transcript(QStringLiteral("And what about the budget?"));
        rig.client.delta(QStringLiteral("r1"), QStringLiteral("late words"));
        rig.clock.advance(0.5);
        rig.client.delta(QStringLiteral("r2"), QStringLiteral("Budget was fine."));
        rig.clock.advance(0.5);
        rig.client.done(QStringLiteral("r2"));

        rig.clock.advance(14.0);
        rig.client.transcript(QStringLiteral("Thanks."));
        rig.client.usage(QVariantMap{{QStringLiteral("input_tokens"), 120}, {QStringLiteral("output_tokens"), 40}});
        rig.clock.advance(1.0);
        QCOMPARE(c.sessionElapsed(), 21.0);
        c.stop();

        QCOMPARE(c.pairs().size(), 2);
        const QString p1 = c.pairs()[0].id;
        const QString p2 = c.pairs()[1].id;
        const qsizetype instructionsChars = TextRules::characterCount(rig.settings.instructions());

        const QString expectedEvents = QStringLiteral(
R"({"event":"session_started","t":0}
{"event":"config","follow_up_window_s":8,"instructions_chars":%1,"model":"gpt-realtime-2.1","prefix_padding_ms":300,"silence_ms":800,"t":0,"transcribe_model":"gpt-live-transcribe","vad_threshold":0.5}
{"event":"audio_started","setup_seconds":0,"t":0}
{"event":"question","pair":"P1","t":1,"text":"Tell me about a project you led.","you_were_speaking":false}
{"event":"answer_started","latency_after_question_s":0.25,"pair":"P1","response":"r1","t":1.25,"you_were_speaking":false}
{"answer":"We shipped it on time.","chars":22,"event":"answer_done","pair":"P1","question":"Tell me about a project you led.","t":1.5}
{"audio_in":900,"audio_in_cached":100,"event":"usage","response_cost_usd":0.03048,"session_cost_per_min_usd":1.8288,"session_cost_usd":0.03048,"t":1.5,"text_in":100,"text_in_cached":100,"text_out":50,"transcription_cost_usd":0}
{"event":"you_started","pair":"P1","t":2}
{"event":"you_stopped","pair":"P1","seconds":3,"t":5,"text":"I led the migration","words":4}
{"added":"And what about the budget?","event":"question_extended","merged":"Tell me about a project you led. And what about the budget?","pair":"P1","t":5}
{"chars":10,"event":"delta_dropped","reason":"response finished","response":"r1","t":5}
{"event":"answer_started","latency_after_question_s":0.5,"pair":"P1","response":"r2","t":5.5,"you_were_speaking":false}
{"answer":"Budget was fine.","chars":16,"event":"answer_done","pair":"P1","question":"Tell me about a project you led. And what about the budget?","t":6}
{"event":"question","pair":"P2","t":20,"text":"Thanks.","you_were_speaking":false}
{"audio_in":0,"audio_in_cached":0,"event":"usage","response_cost_usd":0.00144,"session_cost_per_min_usd":0.0958,"session_cost_usd":0.03192,"t":20,"text_in":120,"text_in_cached":0,"text_out":40,"transcription_cost_usd":0}
{"audio_in":900,"audio_in_cached":100,"cost_per_min_usd":0.0912,"cost_usd":0.03192,"event":"session_cost","minutes":0.35,"t":21,"text_in":220,"text_in_cached":100,"text_out":90,"tokens":1410,"transcription_cost_usd":0}
{"chars":10,"count":1,"event":"deltas_dropped","t":21}
{"event":"session_ended","t":21}
)").arg(instructionsChars).replace(QStringLiteral("\"P1\""), QLatin1Char('"') + p1 + QLatin1Char('"'))
                                           .replace(QStringLiteral("\"P2\""), QLatin1Char('"') + p2 + QLatin1Char('"'));
        QCOMPARE(lines(eventsText()), lines(expectedEvents));

        const QString expectedTranscript = QStringLiteral(
R"(# Meeting transcript — 2025-03-04_14-05-09

Length: 0 min 21 s
Events: `meeting_2025-03-04_14-05-09.events.jsonl`

### 14:05:10 (question extended)
**Interviewer:** Tell me about a project you led. And what about the budget?

**Copilot:** Budget was fine.

**You:** I led the migration

### 14:05:29
**Interviewer:** Thanks.

**Copilot:** —
)");
        QCOMPARE(transcriptText(), expectedTranscript);
        QCOMPARE(c.lastTranscriptURL(), QUrl::fromLocalFile(transcriptPath()));

        QCOMPARE(c.banner(), QStringLiteral("Transcript saved · $0.03 this session · $0.09/min · 1410 tokens"));
        // The usage stays with its session until the next one starts.
        QCOMPARE(c.usage().usage().total(), qint64(1410));
        QCOMPARE(c.transcriptForExport(),
                 QStringLiteral("[14:05:10] Q: Tell me about a project you led. And what about the budget?\nA: Budget was fine.\n\n"
                                "[14:05:29] Q: Thanks.\nA: "));

        // Between sessions nothing is written.
        const QString eventsBefore = eventsText();
        rig.client.exchange(QStringLiteral("Are you still there?"), QStringLiteral("r9"), QStringLiteral("Yes."));
        rig.client.log(QStringLiteral("socket closed"));
        QCOMPARE(eventsText(), eventsBefore);
        QCOMPARE(QDir(SessionController::sessionFolder()).entryList(QDir::Files).size(), 2);
    }

    void shortSessionWithoutTime()
    {
        // Half a second: no clock tick yet, so minutes clamp to one second's worth and the
        // banner carries no cost summary.
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.audio.recording = QStringLiteral("/rec/meeting_2025-03-04_14-05-09.wav");
        QVERIFY(rig.startSession());
        rig.client.usage(QVariantMap{{QStringLiteral("input_tokens"), 1000}});
        rig.clock.advance(0.5);
        c.stop();

        const QStringList events = lines(eventsText());
        QCOMPARE(events.at(3),
                 QStringLiteral(R"({"audio_in":0,"audio_in_cached":0,"event":"usage","response_cost_usd":0.004,"session_cost_per_min_usd":0.24,"session_cost_usd":0.004,"t":0,"text_in":1000,"text_in_cached":0,"text_out":0,"transcription_cost_usd":0})"));
        QCOMPARE(events.at(4),
                 QStringLiteral(R"({"audio_in":0,"audio_in_cached":0,"cost_per_min_usd":0.24,"cost_usd":0.004,"event":"session_cost","minutes":0.02,"t":0.5,"text_in":1000,"text_in_cached":0,"text_out":0,"tokens":1000,"transcription_cost_usd":0})"));
        QCOMPARE(c.banner(), QStringLiteral("Session saved — transcript and recording"));

        // An empty session: no usage or cost lines, and a transcript of header lines only.
        SessionRig quiet;
        QVERIFY(quiet.startSession());
        quiet.clock.advance(3725);
        quiet.controller->stop();
        QCOMPARE(lines(eventsText()).size(), 4);
        QCOMPARE(transcriptText(),
                 QStringLiteral("# Meeting transcript — 2025-03-04_14-05-09\n\nLength: 62 min 05 s\n"
                                "Events: `meeting_2025-03-04_14-05-09.events.jsonl`\n"));
        QCOMPARE(quiet.controller->costSummary(), std::nullopt);
        QCOMPARE(quiet.controller->banner(), QStringLiteral("Transcript saved"));
    }

    // Case 9: a folder that cannot be written never stops the session, and nothing claims a
    // file that does not exist; the user is told plainly and offered Copy Transcript.
    void unwritableFolderIsToldPlainly()
    {
        QFile blocker(SessionController::sessionFolder());   // a file where the folder should be
        QVERIFY(QDir().mkpath(QFileInfo(blocker.fileName()).absolutePath()));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();

        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession());
        QVERIFY2(c.banner().startsWith(QStringLiteral("The events log stopped: it could not be written (")), qPrintable(c.banner()));
        QVERIFY(c.banner().endsWith(QStringLiteral("). The session goes on without it.")));
        rig.clock.advance(2);
        rig.client.exchange(QStringLiteral("Why payments?"), QStringLiteral("r1"), QStringLiteral("Because money moves."));
        QVERIFY(c.pairs()[0].isComplete);
        // Told at the first card that could not be saved.
        QVERIFY2(c.banner().startsWith(QStringLiteral("The transcript could not be saved: it could not be written (")),
                 qPrintable(c.banner()));
        QCOMPARE(c.bannerAction(), std::optional(SessionController::BannerAction::copyTranscript));
        QVERIFY(c.isSessionActive());
        c.stop();
        QVERIFY(QFileInfo(blocker.fileName()).isFile());
        QVERIFY2(c.banner().startsWith(QStringLiteral("The transcript meeting_2025-03-04_14-05-09.transcript.md was not saved: "
                                                      "it could not be written (")),
                 qPrintable(c.banner()));
        QVERIFY2(c.banner().endsWith(QStringLiteral(". Copy the cards with Copy Transcript.")), qPrintable(c.banner()));
        QVERIFY(!c.banner().contains(QStringLiteral("saved —")) && !c.banner().contains(QStringLiteral("Transcript saved")));
        QCOMPARE(c.bannerAction(), std::optional(SessionController::BannerAction::copyTranscript));
        QVERIFY(c.bannerLinks().isEmpty());
        QCOMPARE(c.lastTranscriptURL(), QUrl());
        QCOMPARE(c.transcriptForExport(), QStringLiteral("[14:05:11] Q: Why payments?\nA: Because money moves."));
    }

    // The records' file system fills up mid-session (a file size limit stands in for it here;
    // the end-to-end test uses a full tmpfs as well): a banner at once, the session goes on,
    // and Stop names what is incomplete and links only what is complete.
    void recordsFillUpMidSession_data()
    {
        QTest::addColumn<bool>("recording");
        QTest::newRow("recording on") << true;
        QTest::newRow("recording off") << false;
    }

    void recordsFillUpMidSession()
    {
        QFETCH(bool, recording);
        SessionRig rig;
        SessionController &c = *rig.controller;
        if (recording) {
            rig.audio.recording = SessionController::sessionFolder() + QStringLiteral("/meeting_2025-03-04_14-05-09.wav");
        }
        QVERIFY(rig.startSession());
        rig.client.exchange(QStringLiteral("Why payments?"), QStringLiteral("r1"), QStringLiteral("Because money moves."));
        QVERIFY(c.banner().isEmpty());

        const QString full = qt_error_string(ENOSPC);
        if (recording) {
            rig.audio.recordingFails(full);   // the engine's report, from its writer thread
            QCOMPARE(c.banner(), QStringLiteral("Recording stopped: the disk is full (") + full
                                     + QStringLiteral("). The session goes on; free some space and start a new recording."));
        }
        {
            // No file may grow from here: the events log and the next transcript fail.
            const FileSizeLimit limit(1);
            rig.clock.advance(5);
            rig.client.exchange(QStringLiteral("What about the ledger?"), QStringLiteral("r2"), QStringLiteral("It balanced."));
        }
        const QString tooBig = qt_error_string(EFBIG);
        QVERIFY(c.isSessionActive());
        QCOMPARE(c.pairs().size(), 2);
        QCOMPARE(c.banner(), QStringLiteral("The transcript could not be saved: the file size limit was reached (") + tooBig
                                 + QStringLiteral("). The session goes on; copy the cards now with Copy Transcript."));
        c.stop();
        // The transcript is whole again at Stop (it is rewritten whole); the events log is not.
        QString expected;
        if (recording) {
            expected = QStringLiteral("The recording meeting_2025-03-04_14-05-09.wav is incomplete: the disk is full (") + full
                + QStringLiteral("). ");
        }
        expected += QStringLiteral("The events log meeting_2025-03-04_14-05-09.events.jsonl is incomplete: the file size limit was reached (")
            + tooBig + QStringLiteral("). Copy the cards with Copy Transcript. Transcript saved");
        QVERIFY2(c.banner().startsWith(expected), qPrintable(c.banner()));
        QCOMPARE(c.bannerAction(), std::optional(SessionController::BannerAction::copyTranscript));
        QStringList linked;
        for (const SessionController::BannerLink &link : c.bannerLinks()) {
            linked << link.label;
        }
        QCOMPARE(linked, (QStringList{QStringLiteral("Transcript"), QStringLiteral("Folder")}));
        QCOMPARE(c.lastRecordingURL(), QUrl());
        QVERIFY(transcriptText().contains(QStringLiteral("It balanced.")));
    }

    void sessionLogLines()
    {
        ManualClock clock;
        QTemporaryDir dir;
        SessionLog log(dir.path(), QStringLiteral("S"), clock);
        const QString path = dir.filePath(QStringLiteral("meeting_S.events.jsonl"));
        QCOMPARE(log.jsonPath(), path);
        clock.advance(0.0015);   // 1.5 ms: rounds half away from zero
        log.append(QStringLiteral("client"), {{QStringLiteral("message"), QStringLiteral("é \"q\"\nx")},
                                             {QStringLiteral("event"), QStringLiteral("overwritten")},
                                             {QStringLiteral("t"), 99}});
        // Unbuffered: the line is in the file before the log is closed.
        QCOMPARE(readText(path), QStringLiteral("{\"event\":\"session_started\",\"t\":0}\n"
                                                "{\"event\":\"client\",\"message\":\"é \\\"q\\\"\\nx\",\"t\":0.002}\n"));
        log.close();
        QVERIFY(readText(path).endsWith(QStringLiteral("{\"event\":\"session_ended\",\"t\":0.002}\n")));

        // A log whose file cannot be opened writes nothing and says nothing.
        SessionLog nowhere(dir.filePath(QStringLiteral("missing/folder")), QStringLiteral("S"), clock);
        QVERIFY(!nowhere.isOpen());
        nowhere.append(QStringLiteral("question"));
        nowhere.close();
        QVERIFY(!nowhere.error().isEmpty());
        const SessionLog::WriteResult written = nowhere.writeMarkdown({}, dir.filePath(QStringLiteral("missing/folder")), QStringLiteral("S"));
        QCOMPARE(written.path, dir.filePath(QStringLiteral("missing/folder/meeting_S.transcript.md")));
        QVERIFY(!written.ok());
        QVERIFY(!QFileInfo::exists(written.path));
    }

    void costModel()
    {
        using CostModel::Usage;
        // Flat counts when there are no detail objects.
        QCOMPARE(CostModel::parse({{QStringLiteral("input_tokens"), 120}, {QStringLiteral("output_tokens"), 40}}),
                 (Usage{0, 0, 120, 0, 40, 0}));
        // Cached tokens split between audio and text without cached details.
        QCOMPARE(CostModel::parse({{QStringLiteral("input_token_details"),
                                    QVariantMap{{QStringLiteral("cached_tokens"), 100}, {QStringLiteral("audio_tokens"), 30},
                                                {QStringLiteral("text_tokens"), 500}}}}),
                 (Usage{0, 30, 430, 70, 0, 0}));
        // Reals are truncated; strings and other kinds count as 0; details that are not objects are ignored.
        QCOMPARE(CostModel::parse({{QStringLiteral("input_token_details"),
                                    QVariantMap{{QStringLiteral("audio_tokens"), 12.9}, {QStringLiteral("text_tokens"), QStringLiteral("7")}}},
                                   {QStringLiteral("output_token_details"), QVariantMap{{QStringLiteral("audio_tokens"), -3.7}}}}),
                 (Usage{12, 0, 0, 0, 0, -3}));
        QCOMPARE(CostModel::parse({{QStringLiteral("input_token_details"), 5}, {QStringLiteral("input_tokens"), 9}}),
                 (Usage{0, 0, 9, 0, 0, 0}));

        Usage total{1, 2, 3, 4, 5, 6};
        total.add(Usage{10, 20, 30, 40, 50, 60});
        QCOMPARE(total, (Usage{11, 22, 33, 44, 55, 66}));
        QCOMPARE(total.total(), qint64(231));
        // Audio output is priced as text output.
        QCOMPARE((Usage{0, 0, 0, 0, 0, 1000000}).cost(), 16.0);
        QCOMPARE((Usage{1000000, 1000000, 1000000, 1000000, 0, 0}).cost(), 36.8);

        QCOMPARE(CostModel::money(0.004), QStringLiteral("$0.0040"));
        QCOMPARE(CostModel::money(0.01), QStringLiteral("$0.01"));
        QCOMPARE(CostModel::money(0.009999), QStringLiteral("$0.0100"));
        QCOMPARE(CostModel::rounded(0.00125, 4), 0.0013);
        QCOMPARE(CostModel::rounded(-0.25, 1), -0.3);
        QCOMPARE(CostModel::minutes(0.5), 1.0 / 60.0);
        QCOMPARE(CostModel::minutes(90), 1.5);

        QCOMPARE(CostModel::summary(Usage{0, 0, 15210, 0, 0, 0}, 600),
                 std::optional<QString>(QStringLiteral("$0.06 this session · $0.0061/min · 15210 tokens")));
        QCOMPARE(CostModel::summary(Usage{}, 600), std::nullopt);
        QCOMPARE(CostModel::summary(Usage{0, 0, 10, 0, 0, 0}, 0), std::nullopt);
    }

    // Case 11: each model at its own prices; the meeting transcription priced by its model
    // (a session's sum: tst_session_usage_meter).
    void costByModelAndTranscription()
    {
        using CostModel::Prices;
        QCOMPARE(CostModel::pricesFor(QStringLiteral("gpt-realtime-2.1")), (Prices{4.0, 0.40, 32.0, 0.40, 24.0, 64.0}));
        QCOMPARE(CostModel::pricesFor(QStringLiteral("gpt-realtime-mini-2025-10-06")), (Prices{0.60, 0.06, 10.0, 0.30, 2.40, 20.0}));
        QCOMPARE(CostModel::pricesFor(QStringLiteral("gpt-realtime")).textOutput, 16.0);
        QCOMPARE(CostModel::pricesFor(QStringLiteral("gpt-4o-realtime-preview-2024-12-17")).audioInput, 40.0);
        // Unknown ids, and ids that merely begin like a known one, get the fallback table.
        QCOMPARE(CostModel::pricesFor(QStringLiteral("gpt-realtime-3")), CostModel::fallbackPrices());
        QCOMPARE(CostModel::pricesFor(QStringLiteral("gpt-realtime-2.1-preview")), CostModel::fallbackPrices());
        QCOMPARE(CostModel::fallbackPrices(), (Prices{4.0, 0.40, 32.0, 0.40, 16.0, 16.0}));
        const CostModel::Usage million{1000000, 0, 0, 0, 1000000, 0};
        QCOMPARE(million.cost(CostModel::pricesFor(QStringLiteral("gpt-realtime-2.1-mini"))), 12.4);

        const auto duration = CostModel::parseTranscription({{QStringLiteral("type"), QStringLiteral("duration")},
                                                             {QStringLiteral("seconds"), 30}});
        QCOMPARE(duration.seconds, 30.0);
        QCOMPARE(CostModel::transcriptionCost(duration, QStringLiteral("gpt-live-transcribe")), 0.0085);
        QCOMPARE(CostModel::transcriptionCost(duration, QStringLiteral("whisper-1")), 0.003);
        const auto tokens = CostModel::parseTranscription({{QStringLiteral("type"), QStringLiteral("tokens")},
                                                           {QStringLiteral("input_tokens"), 400000},
                                                           {QStringLiteral("output_tokens"), 100000},
                                                           {QStringLiteral("total_tokens"), 500000}});
        QCOMPARE(tokens.tokens(), qint64(500000));
        QCOMPARE(CostModel::transcriptionCost(tokens, QStringLiteral("gpt-4o-transcribe")), 2.0);
        // A by-the-minute model that reports tokens: the speech the service heard.
        QCOMPARE(CostModel::transcriptionCost(tokens, QStringLiteral("gpt-transcribe"), 120), 0.009);
    }

    // Case 10: the transcript on disk holds every completed card before Stop.
    void transcriptIsRewrittenAfterEveryCard()
    {
        SessionRig rig;
        QVERIFY(rig.startSession());
        rig.client.turn(QStringLiteral("i1"), QStringLiteral("r1"), QStringLiteral("First?"), QStringLiteral("One."));
        QVERIFY(transcriptText().contains(QStringLiteral("**Interviewer:** First?\n\n**Copilot:** One.")));
        rig.client.opened(QStringLiteral("i2"), QStringLiteral("r2"));
        rig.client.delta(QStringLiteral("r2"), QStringLiteral("Half an ans"));
        QVERIFY(!transcriptText().contains(QStringLiteral("Half an ans")));   // unfinished cards wait
        rig.client.transcript(QStringLiteral("Second?"), QStringLiteral("i2"));
        rig.client.done(QStringLiteral("r2"));
        QVERIFY(transcriptText().contains(QStringLiteral("**Interviewer:** Second?\n\n**Copilot:** Half an ans")));
        QVERIFY(QDir(SessionController::sessionFolder()).entryList({QStringLiteral("*.transcript.md*")}, QDir::Files).size() == 1);
    }
};

QTEST_GUILESS_MAIN(SessionRecordsTest)
#include "tst_session_records.moc"
