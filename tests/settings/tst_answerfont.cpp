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

        const QFont mono = AnswerFont::font(QStringLiteral("__mono"), 13, QFont::Normal);
        QVERIFY(QFontInfo(mono).fixedPitch());
        QCOMPARE(mono.family(), QFontDatabase::systemFont(QFontDatabase::FixedFont).family());
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
        QVERIFY(QFontInfo(AnswerFont::font(settings, settings.fontSize(), QFont::Normal)).fixedPitch());
    }
};

QTEST_MAIN(TestAnswerFont)
#include "tst_answerfont.moc"
