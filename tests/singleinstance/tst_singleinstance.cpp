// One running copy: a later launch hands its request to the running one, in process and
// from the real program started a second time.
#include "settings/AppSettings.h"
#include "singleinstance/SingleInstance.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QtConcurrent>

#include <chrono>

using namespace std::chrono_literals;

Q_DECLARE_METATYPE(SingleInstance::Request)

class SingleInstanceTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    // A second launch runs on another thread, so that this one can answer it.
    static QFuture<SingleInstance::Outcome> launchAgain(const QString &directory, const QString &scope, bool start,
                                                        std::chrono::milliseconds timeout = 5s)
    {
        return QtConcurrent::run([directory, scope, start, timeout] {
            SingleInstance second(directory, scope);
            return second.claim({start}, timeout);
        });
    }

    // Waits for the second launch while this thread answers it; a failed outcome if it hangs.
    static SingleInstance::Outcome waitFor(QFuture<SingleInstance::Outcome> future)
    {
        const QDeadlineTimer deadline(20000);
        while (!future.isFinished() && !deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        if (!future.isFinished())
            return {SingleInstance::Role::failed, QStringLiteral("the second launch did not return")};
        return future.result();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        qRegisterMetaType<SingleInstance::Request>();
    }

    void secondLaunchHandsItsRequestOver()
    {
        const QString dir = m_dir.filePath(QStringLiteral("handover"));
        SingleInstance first(dir, QStringLiteral("profile"));
        QCOMPARE(first.claim({false}).role, SingleInstance::Role::primary);
        QSignalSpy requested(&first, &SingleInstance::requested);

        const SingleInstance::Outcome plain = waitFor(launchAgain(dir, QStringLiteral("profile"), false));
        QCOMPARE(plain.role, SingleInstance::Role::handedOver);
        const SingleInstance::Outcome withStart = waitFor(launchAgain(dir, QStringLiteral("profile"), true));
        QCOMPARE(withStart.role, SingleInstance::Role::handedOver);
        QTRY_COMPARE(requested.size(), 2);
        QCOMPARE(requested.at(0).at(0).value<SingleInstance::Request>().start, false);
        QCOMPARE(requested.at(1).at(0).value<SingleInstance::Request>().start, true);

        // Another profile (its own settings) runs side by side.
        const SingleInstance::Outcome other = waitFor(launchAgain(dir, QStringLiteral("other profile"), true));
        QCOMPARE(other.role, SingleInstance::Role::primary);
        QCOMPARE(requested.size(), 2);
    }

    // What `ketterbloom --install-update` asks before it installs: is there a running copy, and
    // does it have a session? Asking requests nothing of it.
    void statusTellsWhetherTheRunningCopyHasASession()
    {
        const QString dir = m_dir.filePath(QStringLiteral("status"));
        const auto askAgain = [dir] {
            return QtConcurrent::run([dir] { return SingleInstance(dir, QStringLiteral("profile")).status(); });
        };
        const auto answer = [](QFuture<SingleInstance::Status> future) {
            while (!future.isFinished())
                QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
            return future.result();
        };
        QCOMPARE(answer(askAgain()).running, false);

        SingleInstance first(dir, QStringLiteral("profile"));
        QCOMPARE(first.claim({}).role, SingleInstance::Role::primary);
        QSignalSpy requested(&first, &SingleInstance::requested);
        bool session = false;
        first.setSessionQuery([&session] { return session; });
        SingleInstance::Status idle = answer(askAgain());
        QVERIFY(idle.running && !idle.sessionRunning && idle.error.isEmpty());
        session = true;
        SingleInstance::Status busy = answer(askAgain());
        QVERIFY(busy.running && busy.sessionRunning && busy.error.isEmpty());
        QCOMPARE(requested.size(), 0);
    }

    void whenTheRunningCopyQuitsTheNextOneRuns()
    {
        const QString dir = m_dir.filePath(QStringLiteral("quit"));
        {
            SingleInstance first(dir, QStringLiteral("profile"));
            QCOMPARE(first.claim({}).role, SingleInstance::Role::primary);
        }
        // A socket file left behind (as after a crash) does not stand in the way.
        SingleInstance probe(dir, QStringLiteral("profile"));
        QFile leftover(probe.socketPath());
        QVERIFY(leftover.open(QIODevice::WriteOnly));
        leftover.close();
        const SingleInstance::Outcome next = waitFor(launchAgain(dir, QStringLiteral("profile"), true));
        QCOMPARE(next.role, SingleInstance::Role::primary);
    }

    void aRunningCopyThatNeverAnswersIsReported()
    {
        const QString dir = m_dir.filePath(QStringLiteral("stuck"));
        SingleInstance first(dir, QStringLiteral("profile"));
        QCOMPARE(first.claim({}).role, SingleInstance::Role::primary);
        // This thread never returns to its event loop while the second launch waits.
        QFuture<SingleInstance::Outcome> second = launchAgain(dir, QStringLiteral("profile"), true, 1500ms);
        second.waitForFinished();
        QCOMPARE(second.result().role, SingleInstance::Role::failed);
        QVERIFY(second.result().error.startsWith(QStringLiteral("Ketterbloom is already running but")));
    }

    void theProgramLaunchedAgainRaisesTheRunningWindow()
    {
        const QString program = qEnvironmentVariable("KETTERBLOOM_BINARY_DIR") + QStringLiteral("/bin/ketterbloom");
        if (!QFile::exists(program))
            QSKIP("the ketterbloom program is not built");
        // The program's runtime folder and settings file decide where it looks.
        const QString runtime = m_dir.filePath(QStringLiteral("runtime"));
        QVERIFY(QDir().mkpath(runtime));
        QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv("XDG_RUNTIME_DIR", runtime.toUtf8());
        SingleInstance running(runtime, AppSettings::openDefaultStore()->fileName());
        QCOMPARE(running.claim({}).role, SingleInstance::Role::primary);
        QSignalSpy requested(&running, &SingleInstance::requested);

        QProcess second;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        second.setProcessEnvironment(env);
        second.start(program, {QStringLiteral("--start")});
        QVERIFY(second.waitForStarted(10000));
        QTRY_COMPARE_WITH_TIMEOUT(requested.size(), 1, 30000);
        QCOMPARE(requested.first().first().value<SingleInstance::Request>().start, true);
        QTRY_COMPARE_WITH_TIMEOUT(second.state(), QProcess::NotRunning, 15000);
        QCOMPARE(second.exitStatus(), QProcess::NormalExit);
        QCOMPARE(second.exitCode(), 0);
    }
};

QTEST_GUILESS_MAIN(SingleInstanceTest)
#include "tst_singleinstance.moc"
