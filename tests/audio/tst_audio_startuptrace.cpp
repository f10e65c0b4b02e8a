#include "audio/StartupTrace.h"

#include <QFile>
#include <QRegularExpression>
#include <QtTest>

#include <atomic>

class TestStartupTrace : public QObject
{
    Q_OBJECT

private slots:
    void stepFormat()
    {
        QCOMPARE(StartupTrace::formatStep(3.5, QStringLiteral("bound mic"), {}), QStringLiteral("  3.50s  bound mic"));
        QCOMPARE(StartupTrace::formatStep(12.345, QStringLiteral("chose mic"), QStringLiteral("VirtualMic")),
                 QStringLiteral(" 12.35s  chose mic  (VirtualMic)"));
    }

    void linesAreAppendedInOrderWithElapsedTimes()
    {
        const QString path = StartupTrace::filePath();
        QVERIFY(path.endsWith(QStringLiteral("/Documents/Ketterbloom/startup.log")));
        QFile::remove(path);

        std::atomic<qint64> now{1000};
        StartupTrace::setClockForTesting([&now] { return now.load(); });
        StartupTrace::begin(QStringLiteral("tap mode"));
        now = 4500;
        StartupTrace::step(QStringLiteral("bound mic"));
        StartupTrace::write(QStringLiteral("        stream switched to meeting-only; recording disabled"));
        for (int i = 0; i < 50; ++i)
            StartupTrace::step(QStringLiteral("step %1").arg(i));
        StartupTrace::flush();
        StartupTrace::setClockForTesting(nullptr);

        QFile f(path);
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QStringList lines = QString::fromUtf8(f.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 53);
        const QRegularExpression stamp(QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ  "));
        for (const QString &line : lines)
            QVERIFY2(stamp.match(line).hasMatch(), qPrintable(line));
        QVERIFY(lines[0].endsWith(QStringLiteral("  ──── tap mode ────")));
        QVERIFY(lines[1].endsWith(QStringLiteral("  3.50s  bound mic")));
        QVERIFY(lines[2].endsWith(QStringLiteral("          stream switched to meeting-only; recording disabled")));
        for (int i = 0; i < 50; ++i)
            QVERIFY(lines[3 + i].endsWith(QStringLiteral("s  step %1").arg(i)));

        // An existing file grows.
        StartupTrace::write(QStringLiteral("again"));
        StartupTrace::flush();
        f.close();
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(f.readAll()).count(QLatin1Char('\n')), 54);
    }
};

QTEST_GUILESS_MAIN(TestStartupTrace)
#include "tst_audio_startuptrace.moc"
