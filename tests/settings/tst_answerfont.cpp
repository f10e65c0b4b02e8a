#include "settings/AnswerFont.h"
#include "settings/AppSettings.h"

#include <QFontDatabase>
#include <QFontInfo>
#include <QGuiApplication>
#include <QTemporaryDir>
#include <QTest>

class TestAnswerFont : public QObject
{
    Q_OBJECT

private slots:
    void familiesResolve()
    {
        const QFont system = AnswerFont::font(QString(), 17, QFont::Bold);
        QCOMPARE(system.family(), QGuiApplication::font().family());
        QCOMPARE(system.pointSizeF(), 17.0);
        QCOMPARE(system.weight(), QFont::Bold);

        // The setting promises the system's fixed-width family, whichever font that is on this
        // machine (whether Qt reads its fixed-pitch flag as set depends on the font).
        const QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
        const QFont mono = AnswerFont::font(QStringLiteral("__mono"), 13, QFont::Normal);
        QCOMPARE(mono.family(), fixed.family());
        QCOMPARE(mono.families(), fixed.families());
        QCOMPARE(QFontInfo(mono).family(), QFontInfo(fixed).family());
        QCOMPARE(mono.pointSizeF(), 13.0);

        const QStringList families = QFontDatabase::families();
        QVERIFY(!families.isEmpty());
        const QFont installed = AnswerFont::font(families.first(), 12, QFont::Light);
        QCOMPARE(installed.family(), families.first());
        QCOMPARE(installed.weight(), QFont::Light);

        const QFont gone = AnswerFont::font(QStringLiteral("No Such Family 9000"), 12, QFont::Normal);
        QCOMPARE(gone.family(), QGuiApplication::font().family());
        QCOMPARE(gone.pointSizeF(), 12.0);
    }

    void followsTheSetting()
    {
        QTemporaryDir dir;
        AppSettings settings(std::make_unique<QSettings>(dir.filePath(QStringLiteral("s.conf")), QSettings::NativeFormat),
                             SecretStore(dir.filePath(QStringLiteral("k")), dir.filePath(QStringLiteral("l"))));
        settings.setFontFamily(QStringLiteral("__mono"));
        const QFont answer = AnswerFont::font(settings, settings.fontSize(), QFont::Normal);
        QCOMPARE(answer.family(), QFontDatabase::systemFont(QFontDatabase::FixedFont).family());
        QCOMPARE(answer.pointSizeF(), settings.fontSize());
        settings.setFontFamily(QString());
        QCOMPARE(AnswerFont::font(settings, 15, QFont::Normal).family(), QGuiApplication::font().family());
    }
};

QTEST_MAIN(TestAnswerFont)
#include "tst_answerfont.moc"
