// The pieces under the updater: how package versions are shown, what is read from dpkg, and
// the relaunch that waits for the old process to be gone.
#include "updates/DpkgPackageDatabase.h"
#include "updates/Relaunch.h"
#include "updates/UpdateTexts.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

class UpdatesPartsTest : public QObject
{
    Q_OBJECT

private:
    static void writeScript(const QString &path, const QByteArray &body)
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\n" + body);
        file.close();
        QVERIFY(file.setPermissions(file.permissions() | QFileDevice::ExeOwner));
    }

private slots:
    void displayVersion_data()
    {
        QTest::addColumn<QString>("package");
        QTest::addColumn<QString>("shown");
        QTest::newRow("plain") << "0.2.0" << "0.2.0";
        QTest::newRow("revision") << "0.2.0-1" << "0.2.0";
        QTest::newRow("epoch and backport") << "1:0.3.1-2~bpo12+1" << "0.3.1";
        QTest::newRow("dash in upstream") << "0.3.0-rc1-1" << "0.3.0-rc1";
    }

    void displayVersion()
    {
        QFETCH(QString, package);
        QFETCH(QString, shown);
        QCOMPARE(UpdateTexts::displayVersion(package), shown);
    }

    void daemonMessagesFitOnOneLine()
    {
        QCOMPARE(UpdateTexts::oneLine(QStringLiteral("  E: Failed to fetch\n\thttp://x  .\n")),
                 QStringLiteral("E: Failed to fetch http://x"));
        QCOMPARE(UpdateTexts::oneLine(QString()), QStringLiteral("no reason given"));
        const QString longLine = UpdateTexts::oneLine(QString(500, QLatin1Char('x')));
        QCOMPARE(longLine.size(), 160);
        QVERIFY(longLine.endsWith(QStringLiteral("…")));
    }

    void dpkgOutput()
    {
        const QString path = QStringLiteral("/usr/bin/ketterbloom");
        QCOMPARE(DpkgPackageDatabase::parseOwners(QStringLiteral("ketterbloom: /usr/bin/ketterbloom\n"), path),
                 QStringList{QStringLiteral("ketterbloom")});
        QCOMPARE(DpkgPackageDatabase::parseOwners(
                     QStringLiteral("diversion by foo from: /usr/bin/ketterbloom\nketterbloom:amd64, other: "
                                    "/usr/bin/ketterbloom\n"),
                     path),
                 (QStringList{QStringLiteral("ketterbloom"), QStringLiteral("other")}));
        QCOMPARE(DpkgPackageDatabase::parseOwners(QStringLiteral("foo: /usr/bin/ketterbloom-sim\n"), path),
                 QStringList());
        QCOMPARE(DpkgPackageDatabase::parseStatusVersion(QStringLiteral("installed 0.2.0-1\n")),
                 std::optional(QStringLiteral("0.2.0-1")));
        QCOMPARE(DpkgPackageDatabase::parseStatusVersion(QStringLiteral("triggers-pending 0.2.0-1\n")),
                 std::optional(QStringLiteral("0.2.0-1")));
        QCOMPARE(DpkgPackageDatabase::parseStatusVersion(QStringLiteral("unpacked 0.2.0-1\n")), std::nullopt);
        QCOMPARE(DpkgPackageDatabase::parseStatusVersion(QStringLiteral("config-files 0.2.0-1\n")), std::nullopt);
        QCOMPARE(DpkgPackageDatabase::parseStatusVersion(QString()), std::nullopt);
    }

    void dpkgQueries()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        // A dpkg-query that knows one file and one package.
        const QString query = dir.filePath(QStringLiteral("dpkg-query"));
        writeScript(query, "case \"$1\" in\n"
                           "-S) if [ \"$2\" = /usr/bin/ketterbloom ]; then echo \"ketterbloom: $2\"; exit 0; fi\n"
                           "    echo \"dpkg-query: no path found matching pattern $2\" >&2; exit 1 ;;\n"
                           "-W) if [ \"$3\" = ketterbloom ]; then echo \"installed 0.2.0-1\"; exit 0; fi\n"
                           "    echo \"dpkg-query: no packages found matching $3\" >&2; exit 1 ;;\n"
                           "esac\nexit 2\n");
        DpkgPackageDatabase database(nullptr, query);

        std::optional<std::optional<PackageDatabase::Owner>> owner;
        database.owner(QStringLiteral("/usr/bin/ketterbloom"), [&](std::optional<PackageDatabase::Owner> o) { owner = o; });
        QTRY_VERIFY(owner.has_value());
        QVERIFY(owner->has_value());
        QCOMPARE((*owner)->package, QStringLiteral("ketterbloom"));
        QCOMPARE((*owner)->version, QStringLiteral("0.2.0-1"));

        owner.reset();
        database.owner(dir.filePath(QStringLiteral("build/bin/ketterbloom")),
                       [&](std::optional<PackageDatabase::Owner> o) { owner = o; });
        QTRY_VERIFY(owner.has_value());
        QVERIFY(!owner->has_value());

        std::optional<std::optional<QString>> version;
        database.installedVersion(QStringLiteral("not-there"), [&](std::optional<QString> v) { version = v; });
        QTRY_VERIFY(version.has_value());
        QCOMPARE(*version, std::nullopt);

        // No dpkg at all (another distribution): no owner, so a build-folder copy.
        DpkgPackageDatabase missing(nullptr, dir.filePath(QStringLiteral("no-such-dpkg-query")));
        owner.reset();
        missing.owner(QStringLiteral("/usr/bin/ketterbloom"), [&](std::optional<PackageDatabase::Owner> o) { owner = o; });
        QTRY_VERIFY(owner.has_value());
        QVERIFY(!owner->has_value());
    }

    void relaunchWaitsForTheOldProcess()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString marker = dir.filePath(QStringLiteral("started"));
        const QString program = dir.filePath(QStringLiteral("new-ketterbloom"));
        writeScript(program, "echo \"$@\" > \"$0.args\"; touch \"$1\"\n");

        QProcess old;
        old.start(QStringLiteral("sleep"), {QStringLiteral("30")});
        QVERIFY(old.waitForStarted());
        const auto started = Relaunch::afterExit(old.processId(), program, {marker, QStringLiteral("--second")});
        QVERIFY2(started.ok(), qPrintable(started.errorIfAny().value_or(QString())));
        QTest::qWait(400);
        QVERIFY(!QFile::exists(marker));

        old.kill();
        QVERIFY(old.waitForFinished());
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(marker), 10000);
        QFile args(program + QStringLiteral(".args"));
        QVERIFY(args.open(QIODevice::ReadOnly));
        QCOMPARE(args.readAll().trimmed(), (marker + QStringLiteral(" --second")).toUtf8());

        const auto missing = Relaunch::afterExit(old.processId(), dir.filePath(QStringLiteral("missing")), {});
        QVERIFY(!missing.ok());
        QVERIFY(missing.error().contains(QStringLiteral("not an executable file")));
    }
};

QTEST_GUILESS_MAIN(UpdatesPartsTest)
#include "tst_updates_parts.moc"
