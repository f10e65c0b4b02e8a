// The sample interview end to end, as a new user meets it: no key, no sound server, no service
// but the program's own local stand-in. In a terminal, and in the window; and what a newcomer
// is told when something basic is missing.

#include "E2eHarness.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

using namespace e2e;

namespace {

struct ScriptedCard
{
    QString question;
    QString answer;
};

// The cards the sample interview must show: every spoken question with its answer, except
// that a follow-up (a question starting in lower case) is merged into the question before it;
// the merged question is the script's unspoken turn, with the answer to both.
struct Expected
{
    QList<ScriptedCard> cards;
    QString mergedAnswer;
};

Expected expectedCards()
{
    QFile file(qEnvironmentVariable("KETTERBLOOM_SOURCE_DIR") + QStringLiteral("/demo/interview.json"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    Expected expected;
    for (const QJsonValue &value : QJsonDocument::fromJson(file.readAll()).object().value(QStringLiteral("turns")).toArray()) {
        const QJsonObject turn = value.toObject();
        const QString question = turn.value(QStringLiteral("question")).toString();
        const QString answer = turn.value(QStringLiteral("answer")).toString();
        if (!turn.value(QStringLiteral("spoken")).toBool(true)) {
            expected.mergedAnswer = answer;
            expected.cards.append({question, answer});
        } else if (question.at(0).isLower() && !expected.cards.isEmpty()) {
            expected.cards.removeLast();
        } else {
            expected.cards.append({question, answer});
        }
    }
    return expected;
}

// A machine with no sound server, no key and no service address.
void asOnAFreshMachine(App &app, const QString &runtimeDir)
{
    QDir().mkpath(runtimeDir);
    QFile::setPermissions(runtimeDir, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    app.setEnvironment(QStringLiteral("XDG_RUNTIME_DIR"), runtimeDir);
    app.setEnvironment(QStringLiteral("PULSE_SERVER"), QStringLiteral("unix:") + runtimeDir + QStringLiteral("/none"));
    app.setEnvironment(QStringLiteral("OPENAI_API_KEY"), QString());
    app.setEnvironment(QStringLiteral("KQ_REALTIME_URL"), QString());
}

// The records of the session: named as a demo, marked so, and free.
void checkRecords(const App &app, const Expected &expected)
{
    const QString transcriptPath = app.newestFile(QStringLiteral(".transcript.md"));
    QVERIFY2(QFileInfo(transcriptPath).fileName().contains(QStringLiteral("demo")), qPrintable(transcriptPath));
    const QString transcript = readText(transcriptPath);
    for (const ScriptedCard &card : expected.cards)
        QVERIFY2(transcript.contains(QStringLiteral("**Interviewer:** ") + card.question), qPrintable(card.question));
    QVERIFY2(transcript.contains(expected.mergedAnswer), qPrintable(transcript));
    const QList<QJsonObject> config = app.events(QStringLiteral("config"));
    QVERIFY(!config.isEmpty() && config.last().value(QStringLiteral("demo")).toBool());
    for (const QJsonObject &cost : app.events(QStringLiteral("session_cost")))
        QCOMPARE(cost.value(QStringLiteral("cost_usd")).toDouble(), 0.0);
}

} // namespace

class DemoTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_expected = expectedCards();
        QVERIFY(m_expected.cards.size() >= 7);
        QVERIFY(!m_expected.mergedAnswer.isEmpty());
    }

    void inTheTerminal()
    {
        QTemporaryDir dir;
        App app(dir.filePath(QStringLiteral("home")));
        asOnAFreshMachine(app, dir.filePath(QStringLiteral("run")));
        QVERIFY(app.start({QStringLiteral("--headless"), QStringLiteral("--demo")}, QString()));
        QVERIFY2(app.wait(240000), qPrintable(app.err()));
        QVERIFY2(app.exitCode() == 0, qPrintable(app.err()));

        const QString out = app.out();
        for (const ScriptedCard &card : m_expected.cards) {
            const QString block = QStringLiteral("**Interviewer:** ") + card.question + QStringLiteral("\n\n**Copilot:** ") + card.answer;
            QVERIFY2(out.contains(block), qPrintable(card.question + QStringLiteral("\n---\n") + out));
        }
        QVERIFY2(out.contains(QStringLiteral("(question extended)")), qPrintable(out));
        QVERIFY2(out.contains(m_expected.mergedAnswer), qPrintable(out));
        QVERIFY2(app.err().contains(QStringLiteral("sample interview")), qPrintable(app.err()));
        checkRecords(app, m_expected);
    }

    void inTheWindow()
    {
        QTemporaryDir dir;
        App app(dir.filePath(QStringLiteral("home")));
        asOnAFreshMachine(app, dir.filePath(QStringLiteral("run")));
        const QString picture = qEnvironmentVariable("KETTERBLOOM_BINARY_DIR") + QStringLiteral("/renders/demo-window.png");
        QDir().mkpath(QFileInfo(picture).absolutePath());
        QFile::remove(picture);
        app.setEnvironment(QStringLiteral("KETTERBLOOM_DEMO_PICTURE"), picture);
        // The sample interview ends by itself after about two minutes; the window closes later.
        QVERIFY(app.start({QStringLiteral("--demo"), QStringLiteral("--stop-after"), QStringLiteral("150")}, QString()));
        QVERIFY2(app.wait(240000), qPrintable(app.err()));
        QVERIFY2(app.exitCode() == 0, qPrintable(app.err()));
        QVERIFY2(QFileInfo(picture).size() > 0, qPrintable(app.err()));
        checkRecords(app, m_expected);
    }

    // What a newcomer sees when something basic is missing: no key in a terminal, no display.
    void firstMinuteMessages()
    {
        QTemporaryDir dir;
        const auto path = [&dir](const char *name) { return dir.filePath(QLatin1String(name)); };
        App noKey(path("home-nokey"));
        noKey.setEnvironment(QStringLiteral("OPENAI_API_KEY"), QString());
        QVERIFY(noKey.start({QStringLiteral("--headless"), QStringLiteral("--stop-after"), QStringLiteral("5")},
                            QStringLiteral("ws://127.0.0.1:9/v1/realtime")));
        QVERIFY(noKey.wait(20000));
        QCOMPARE(noKey.exitCode(), 1);
        QVERIFY2(noKey.err().contains(QStringLiteral("Add your OpenAI API key before starting.")), qPrintable(noKey.err()));
        QVERIFY2(noKey.err().contains(path("home-nokey") + QStringLiteral("/.local/share/Ketterbloom/openai.key")),
                 qPrintable(noKey.err()));
        QVERIFY(noKey.err().contains(QStringLiteral("OPENAI_API_KEY")));

        App noDisplay(path("home-nodisplay"));
        for (const char *name : {"QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY"})
            noDisplay.setEnvironment(QString::fromLatin1(name), QString());
        QVERIFY(noDisplay.start({}, QStringLiteral("ws://127.0.0.1:9/v1/realtime")));
        QVERIFY(noDisplay.wait(20000));
        QCOMPARE(noDisplay.exitCode(), 1);
        QCOMPARE(noDisplay.err(),
                 QStringLiteral("No display: start Ketterbloom from your desktop session, or use --headless\n"));
    }


private:
    Expected m_expected;
};

QTEST_GUILESS_MAIN(DemoTest)
#include "tst_e2e_demo.moc"
