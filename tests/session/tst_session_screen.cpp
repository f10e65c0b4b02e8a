// Screen questions in the session: the card, its thumbnail, its answer and its place in the
// history; the refusals that send nothing; and the whole path against the simulator.

#include "SessionRig.h"

#include "realtime/RealtimeClient.h"
#include "realtimesim/RealtimeSimulator.h"
#include "screenshot/ScreenImage.h"
#include "session/SystemClock.h"

#include <QJsonArray>
#include <QPainter>
#include <QSignalSpy>
#include <QTest>

namespace {

const QString kPrompt = QStringLiteral(
    "Answer the question shown on this screen. If it is code, give the approach first, then the code.");

PreparedScreenImage screenPicture()
{
    QImage screen(2560, 1440, QImage::Format_RGB32);
    screen.fill(Qt::white);
    QPainter(&screen).fillRect(QRect(200, 200, 800, 300), Qt::darkGreen);
    return ScreenImage::prepare(screen);
}

} // namespace

class SessionScreenTest : public QObject
{
    Q_OBJECT

private slots:
    void noSessionSendsNothing()
    {
        SessionRig rig;
        QVERIFY(!rig.controller->askAboutScreen(QByteArray("jpeg"), QByteArray("thumb")));
        QVERIFY(rig.client.images.isEmpty());
        QVERIFY(rig.controller->pairs().isEmpty());
        QCOMPARE(rig.controller->banner(), QStringLiteral("Start a session to ask about your screen — nothing was sent."));
    }

    void refusedOrCancelledLeavesOneLineAndSendsNothing()
    {
        SessionRig rig;
        QVERIFY(rig.startSession());
        rig.controller->screenQuestionFailed(QStringLiteral("Screen question cancelled — nothing was sent."));
        QCOMPARE(rig.controller->banner(), QStringLiteral("Screen question cancelled — nothing was sent."));
        QVERIFY(rig.client.images.isEmpty());
        QVERIFY(rig.controller->pairs().isEmpty());
        // A link that cannot send pictures: no card, a banner.
        rig.client.acceptsImages = false;
        QVERIFY(!rig.controller->askAboutScreen(QByteArray("jpeg"), QByteArray("thumb")));
        QVERIFY(rig.controller->pairs().isEmpty());
        QVERIFY(rig.controller->banner().contains(QStringLiteral("nothing was sent")));
    }

    void cardThumbnailAnswerAndHistory()
    {
        SessionRig rig;
        QVERIFY(rig.startSession());
        const PreparedScreenImage picture = screenPicture();
        QSignalSpy inserted(&rig.controller->cards(), &CardBook::rowsInserted);
        QVERIFY(rig.controller->askAboutScreen(picture.jpeg, picture.thumbnailJpeg));
        QCOMPARE(rig.client.images.size(), 1);
        QCOMPARE(rig.client.images.first().first, picture.jpeg);
        QCOMPARE(rig.client.images.first().second, kPrompt);
        QCOMPARE(inserted.size(), 1);
        const QAPair card = rig.controller->pairs().last();
        QCOMPARE(card.question, QStringLiteral("Screen question"));
        QCOMPARE(card.screenThumbnail, picture.thumbnailJpeg);

        // The response we asked for streams into the card.
        rig.client.created(QStringLiteral("r-screen"), true);
        rig.client.delta(QStringLiteral("r-screen"), QStringLiteral("Approach: two pointers. "));
        rig.client.answer(QStringLiteral("r-screen"), QStringLiteral("Code: ..."));
        QCOMPARE(rig.controller->pairs().size(), 1);
        QCOMPARE(rig.controller->pairs().last().answer, QStringLiteral("Approach: two pointers. Code: ..."));
        QVERIFY(rig.controller->pairs().last().isComplete);
        // Part of the history like any card, as text.
        QVERIFY(!rig.client.histories.isEmpty());
        QCOMPARE(rig.client.histories.last().last(),
                 (HistoryEntry{QStringLiteral("Screen question"), QStringLiteral("Approach: two pointers. Code: ...")}));

        // Speech right after it is a new question, never an extension of the screen card.
        rig.clock.advance(1);
        rig.client.transcript(QStringLiteral("and how would you test it"));
        QCOMPARE(rig.controller->pairs().size(), 2);
        QCOMPARE(rig.controller->pairs().first().question, QStringLiteral("Screen question"));
        QVERIFY(rig.client.regenerated.isEmpty());
    }

    // The interviewer's own turn answered by the service meanwhile does not take the screen
    // card; the response we asked for does.
    void onlyTheRequestedResponseAnswersTheScreenCard()
    {
        SessionRig rig;
        QVERIFY(rig.startSession());
        QVERIFY(rig.controller->askAboutScreen(QByteArray("jpeg"), QByteArray("thumb")));
        rig.client.created(QStringLiteral("r-vad"), false);
        rig.client.delta(QStringLiteral("r-vad"), QStringLiteral("Answer to something heard."));
        rig.client.created(QStringLiteral("r-screen"), true);
        rig.client.delta(QStringLiteral("r-screen"), QStringLiteral("Answer to the screen."));
        const QList<QAPair> &pairs = rig.controller->pairs();
        QCOMPARE(pairs.size(), 2);
        QCOMPARE(pairs.at(0).question, QStringLiteral("Screen question"));
        QCOMPARE(pairs.at(0).answer, QStringLiteral("Answer to the screen."));
        QCOMPARE(pairs.at(1).answer, QStringLiteral("Answer to something heard."));
    }

    // Asked again once when no response comes, then given up with a note.
    void unansweredScreenQuestionGivesUp()
    {
        SessionRig rig;
        QVERIFY(rig.startSession());
        QVERIFY(rig.controller->askAboutScreen(QByteArray("jpeg"), QByteArray("thumb")));
        QCOMPARE(rig.client.images.size(), 1);
        rig.clock.advance(21);
        QCOMPARE(rig.client.images.size(), 2);   // the picture again, never the text "Screen question"
        QVERIFY(rig.client.regenerated.isEmpty());
        QVERIFY(!rig.controller->pairs().last().isComplete);
        rig.clock.advance(21);
        QVERIFY(rig.controller->pairs().last().isComplete);
        QCOMPARE(rig.controller->pairs().last().answerNote, QAPair::couldNotAnswerNote(QStringLiteral("no response")));
        // A late response no longer lands in it.
        rig.client.created(QStringLiteral("late"), true);
        QVERIFY(!rig.controller->pairs().first().responseID);
    }

    // A screen question asked while an answer streams waits for it instead of cancelling it.
    void askedDuringAnAnswerWaitsForIt()
    {
        SessionRig rig;
        QVERIFY(rig.startSession());
        rig.client.created(QStringLiteral("r-vad"), false);
        rig.client.delta(QStringLiteral("r-vad"), QStringLiteral("Answer to something heard."));
        QVERIFY(rig.controller->askAboutScreen(QByteArray("jpeg"), QByteArray("thumb")));
        QVERIFY(rig.client.images.isEmpty());
        rig.client.done(QStringLiteral("r-vad"));
        QCOMPARE(rig.client.images.size(), 1);
    }

    // The real client against the simulator: the messages on the wire, the card and the
    // history re-sent after a reconnect (as text: the picture is not sent again).
    void againstTheSimulator()
    {
        RealtimeSimulator sim;
        QVERIFY(sim.listen());
        SimScript script = SimScript::builtin();
        script.imageAnswer = QStringLiteral("Approach: sort, then sweep once. Code: intervals.sort()");
        sim.setScript(script);
        qputenv("KQ_REALTIME_URL", sim.url().toString().toUtf8());

        QTemporaryDir dir;
        AppSettings settings(std::make_unique<QSettings>(dir.filePath(QStringLiteral("s.conf")), QSettings::IniFormat),
                             SecretStore(dir.filePath(QStringLiteral("k")), dir.filePath(QStringLiteral("l"))));
        settings.setApiKey(QStringLiteral("sk-test-screen"));
        settings.setJobDescription(QStringLiteral("Backend engineer."));
        settings.setContextText(QStringLiteral("Ten years of Go."));
        RealtimeClient realtime;
        FakeCaptureLink audio;
        FakeTapQueries taps;
        FakeMicTranscription mic;
        FakeRecordingTranscription recordings;
        SystemClock clock;
        FakeIdleInhibitor idle;
        FakeFileRevealer revealer;
        FakeRecordingPicker picker;
        SessionController controller(SessionController::Components{
            settings, realtime, audio, taps, mic, recordings, clock, idle, revealer, picker,
            [](std::function<void()> job) { job(); }});
        controller.start();
        QTRY_VERIFY_WITH_TIMEOUT(controller.isSessionActive(), 15000);
        QTRY_COMPARE_WITH_TIMEOUT(controller.status(), RealtimeStatus::connected(), 15000);

        const PreparedScreenImage picture = screenPicture();
        QVERIFY(controller.askAboutScreen(picture.jpeg, picture.thumbnailJpeg));
        QTRY_VERIFY_WITH_TIMEOUT(!controller.pairs().isEmpty() && controller.pairs().last().isComplete, 15000);
        const QAPair card = controller.pairs().last();
        QCOMPARE(card.question, QStringLiteral("Screen question"));
        QCOMPARE(card.answer, script.imageAnswer);
        QImage thumbnail;
        QVERIFY(thumbnail.loadFromData(card.screenThumbnail, "JPEG"));
        QCOMPARE(thumbnail.size(), QSize(160, 90));

        // On the wire: one user item with the picture and the prompt, then response.create.
        const QList<QJsonObject> items = sim.received(QStringLiteral("conversation.item.create"), 1);
        QCOMPARE(items.size(), 1);
        const QJsonArray content = items.first().value("item").toObject().value("content").toArray();
        QCOMPARE(content.at(0).toObject().value("type").toString(), QStringLiteral("input_image"));
        const QString url = content.at(0).toObject().value("image_url").toString();
        QCOMPARE(QByteArray::fromBase64(url.mid(QStringLiteral("data:image/jpeg;base64,").size()).toLatin1()), picture.jpeg);
        QImage sent;
        QVERIFY(sent.loadFromData(picture.jpeg, "JPEG"));
        QCOMPARE(sent.size(), QSize(1600, 900)); // scaled, never the raw 2560 x 1440
        QCOMPARE(content.at(1).toObject().value("text").toString(), kPrompt);
        QCOMPARE(sim.received(QStringLiteral("response.create"), 1).size(), 1);

        // A new connection gets the card back as text only.
        QVERIFY(sim.dropConnection());
        QTRY_VERIFY_WITH_TIMEOUT(sim.received(QStringLiteral("conversation.item.create"), 2).size() >= 2, 20000);
        const QList<QJsonObject> seeded = sim.received(QStringLiteral("conversation.item.create"), 2);
        QStringList seen;
        for (const QJsonObject &message : seeded) {
            const QJsonObject item = message.value("item").toObject();
            for (const QJsonValue &part : item.value("content").toArray())
                seen.append(item.value("role").toString() + "/" + part.toObject().value("type").toString() + "/"
                            + part.toObject().value("text").toString());
        }
        QCOMPARE(seen, (QStringList{QStringLiteral("user/input_text/Screen question"),
                                    QStringLiteral("assistant/output_text/") + script.imageAnswer}));
        controller.stop();
        qunsetenv("KQ_REALTIME_URL");
    }
};

QTEST_GUILESS_MAIN(SessionScreenTest)
#include "tst_session_screen.moc"
