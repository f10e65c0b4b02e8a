// The session's record files and the truth about them: each failure announced once per file,
// noted in the events log while that works, a transcript that recovers when rewritten whole,
// and only a complete transcript offered.

#include "ManualClock.h"

#include "session/SessionRecords.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

class SessionRecordsFilesTest : public QObject
{
    Q_OBJECT

private slots:
    void failuresAreToldOncePerFile()
    {
        QTemporaryDir dir;
        ManualClock clock;
        SessionRecords records(clock);
        QSignalSpy failed(&records, &SessionRecords::fileFailed);
        const QList<QAPair> cards{QAPair::make(QStringLiteral("Why?"), std::nullopt, clock.now(), clock.wallNow())};

        records.open(dir.path(), QStringLiteral("S"));
        records.append(QStringLiteral("question"), {{QStringLiteral("text"), QStringLiteral("Why?")}});
        records.saveTranscript(cards);
        QCOMPARE(failed.count(), 0);

        // The transcript's folder goes: told once, however often it fails.
        QVERIFY(QDir(dir.path()).removeRecursively());
        records.saveTranscript(cards);
        records.saveTranscript(cards);
        records.fail(RecordFaults::File::recording, dir.filePath(QStringLiteral("S.wav")), QStringLiteral("No space left on device"));
        records.fail(RecordFaults::File::recording, dir.filePath(QStringLiteral("S.wav")), QStringLiteral("No space left on device"));
        QCOMPARE(failed.count(), 2);
        QVERIFY(records.faults().hasFailed(RecordFaults::File::transcript));
        QCOMPARE(records.completeTranscriptPath(), QString());

        // Written whole again: the transcript is offered after all; the recording stays failed.
        QVERIFY(QDir().mkpath(dir.path()));
        records.saveTranscript(cards);
        records.close();
        QCOMPARE(records.completeTranscriptPath(), dir.filePath(QStringLiteral("meeting_S.transcript.md")));
        QVERIFY(records.faults().hasFailed(RecordFaults::File::recording));
        QVERIFY(!records.isOpen());
        records.append(QStringLiteral("late"), {});   // no log: nothing, no failure
        QCOMPARE(failed.count(), 2);

        // A new session forgets the last one's faults.
        records.open(dir.path(), QStringLiteral("T"));
        QVERIFY(!records.faults().any());
        records.discard();
        QFile events(dir.filePath(QStringLiteral("meeting_T.events.jsonl")));
        QVERIFY(events.open(QIODevice::ReadOnly));
        QVERIFY(events.readAll().contains("session_ended"));
    }
};

QTEST_GUILESS_MAIN(SessionRecordsFilesTest)
#include "tst_session_records_files.moc"
