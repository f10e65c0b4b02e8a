#include "settings/AppSettings.h"
#include "settings/SecretStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

namespace {

QStringList g_messages;

void capture(QtMsgType, const QMessageLogContext &, const QString &message)
{
    g_messages.append(message);
}

QByteArray contents(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

void write(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}

QFileDevice::Permissions ownerOnly(bool dir)
{
    QFileDevice::Permissions p = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
    if (dir)
        p |= QFileDevice::ExeOwner;
    return p;
}

QFileDevice::Permissions modeOf(const QString &path)
{
    // Only the owner/group/other bits (QFileInfo adds the "user" ones).
    return QFileInfo(path).permissions()
        & (QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner | QFileDevice::ReadGroup
           | QFileDevice::WriteGroup | QFileDevice::ExeGroup | QFileDevice::ReadOther | QFileDevice::WriteOther
           | QFileDevice::ExeOther);
}

} // namespace

class TestSecretStore : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    SecretStore store() const
    {
        return SecretStore(m_dir->filePath(QStringLiteral("Ketterbloom")), m_dir->filePath(QStringLiteral("Tallowmere")));
    }

private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        qunsetenv("OPENAI_API_KEY");
    }

    void defaultFoldersFollowTheDataLocation()
    {
        const QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
        QCOMPARE(SecretStore().directory(), data + QStringLiteral("/Ketterbloom"));
        QCOMPARE(SecretStore().legacyDirectory(), data + QStringLiteral("/Tallowmere"));
        QCOMPARE(SecretStore().filePath(), data + QStringLiteral("/Ketterbloom/openai.key"));
    }

    void saveTrimsWritesPrivatelyAndBlankDeletes()
    {
        const SecretStore s = store();
        s.save(QStringLiteral(" \t sk-abc123 \n"));
        QCOMPARE(contents(s.filePath()), QByteArray("sk-abc123"));
        QCOMPARE(modeOf(s.directory()), ownerOnly(true));
        QCOMPARE(modeOf(s.filePath()), ownerOnly(false));
        QCOMPARE(s.readKeyFile(), std::optional<QString>(QStringLiteral("sk-abc123")));

        // Overwriting keeps the mode; no temporary file is left behind.
        QFile::setPermissions(s.filePath(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadOther);
        s.save(QStringLiteral("sk-\u00e9t\u00e9"));
        QCOMPARE(contents(s.filePath()), QByteArray("sk-\xc3\xa9t\xc3\xa9"));
        QCOMPARE(modeOf(s.filePath()), ownerOnly(false));
        QCOMPARE(QDir(s.directory()).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("openai.key")});

        s.save(QStringLiteral(" \n "));
        QVERIFY(!QFile::exists(s.filePath()));
        s.save(QString()); // deleting a missing file is fine
        QVERIFY(!QFile::exists(s.filePath()));
    }

    void readingRejectsBlankAndInvalidFiles()
    {
        const SecretStore s = store();
        write(s.filePath(), "  \n");
        QCOMPARE(s.readKeyFile(), std::nullopt);
        write(s.filePath(), "sk-\xff\xfe");
        QCOMPARE(s.readKeyFile(), std::nullopt);
        write(s.filePath(), "\r\n  sk-xyz \r\n");
        QCOMPARE(s.readKeyFile(), std::optional<QString>(QStringLiteral("sk-xyz")));
    }

    // A key file is used only when it is a regular file holding one line; otherwise the store
    // says why it ignored it, and the environment's key is used as if there were no file.
    void keyFilesOfTheWrongShapeAreIgnored_data()
    {
        QTest::addColumn<QString>("shape");
        QTest::addColumn<QString>("why");
        QTest::newRow("symbolic link") << "symlink" << "is a symbolic link (it must be a regular file)";
        QTest::newRow("folder") << "folder" << "is a folder";
        QTest::newRow("several lines") << "lines" << "holds more than one line (it must hold the key alone)";
        QTest::newRow("not UTF-8") << "binary" << "is not UTF-8 text";
    }

    void keyFilesOfTheWrongShapeAreIgnored()
    {
        QFETCH(QString, shape);
        QFETCH(QString, why);
        const SecretStore s = store();
        const QString target = m_dir->filePath(QStringLiteral("elsewhere.key"));
        write(target, "sk-SECRET-linked");
        QVERIFY(QDir().mkpath(s.directory()));
        if (shape == "symlink")
            QVERIFY(QFile::link(target, s.filePath()));
        else if (shape == "folder")
            QVERIFY(QDir().mkpath(s.filePath()));
        else if (shape == "lines")
            write(s.filePath(), "sk-SECRET-one\nsk-SECRET-two\n");
        else
            write(s.filePath(), "sk-\xff\xfe");
        qputenv("OPENAI_API_KEY", "sk-from-env");

        g_messages.clear();
        const QtMessageHandler previous = qInstallMessageHandler(capture);
        QString problem;
        const QString key = s.loadKey(&problem);
        qInstallMessageHandler(previous);
        QCOMPARE(key, QStringLiteral("sk-from-env"));
        QCOMPARE(problem, QStringLiteral("The key file %1 %2, so it was ignored.").arg(s.filePath(), why));
        QCOMPARE(s.readKeyFile(), std::nullopt);
        QVERIFY(g_messages.join('\n').contains(problem));
        for (const QString &message : std::as_const(g_messages))
            QVERIFY2(!message.contains(QStringLiteral("SECRET")), qPrintable(message));

        // The settings pass it on to whoever shows the user what loading found.
        AppSettings settings(std::make_unique<QSettings>(m_dir->filePath(QStringLiteral("s.conf")), QSettings::NativeFormat), s);
        QCOMPARE(settings.loadNotices(), QStringList{problem});
        QCOMPARE(settings.apiKey(), QStringLiteral("sk-from-env"));
    }

    void aKeyFileOthersCanReadIsTightenedAndUsed()
    {
        const SecretStore s = store();
        write(s.filePath(), "sk-SECRET-shared\n");
        QVERIFY(QFile::setPermissions(s.filePath(), QFileDevice::ReadOwner | QFileDevice::WriteOwner
                                                        | QFileDevice::ReadGroup | QFileDevice::ReadOther)); // 0644
        QVERIFY(QFile::setPermissions(s.directory(), ownerOnly(true) | QFileDevice::ReadGroup | QFileDevice::ExeGroup
                                                         | QFileDevice::ReadOther | QFileDevice::ExeOther)); // 0755
        g_messages.clear();
        const QtMessageHandler previous = qInstallMessageHandler(capture);
        QString problem;
        QCOMPARE(s.loadKey(&problem), QStringLiteral("sk-SECRET-shared"));
        qInstallMessageHandler(previous);
        QCOMPARE(problem, QString());
        QCOMPARE(modeOf(s.filePath()), ownerOnly(false));
        QCOMPARE(modeOf(s.directory()), ownerOnly(true));
        const QString log = g_messages.join('\n');
        QVERIFY2(log.contains(QStringLiteral("the key file %1 was open to others (mode 644); tightened to 600").arg(s.filePath())),
                 qPrintable(log));
        QVERIFY2(log.contains(QStringLiteral("the key folder %1 was open to others (mode 755); tightened to 700").arg(s.directory())),
                 qPrintable(log));
        QVERIFY(!log.contains(QStringLiteral("SECRET")));
    }

    void blankKeyFileFallsBackToTheEnvironment()
    {
        const SecretStore s = store();
        write(s.filePath(), "   \n");
        QCOMPARE(s.loadKey(), QString());
        qputenv("OPENAI_API_KEY", "sk-from-env\n");
        QCOMPARE(s.loadKey(), QStringLiteral("sk-from-env\n"));
        write(s.filePath(), "sk-file");
        QCOMPARE(s.loadKey(), QStringLiteral("sk-file"));
    }

    void legacyFileIsCopiedOnce()
    {
        const SecretStore s = store();
        const QString legacy = s.legacyDirectory() + QStringLiteral("/openai.key");
        write(legacy, " sk-legacy \n");
        QCOMPARE(s.loadKey(), QStringLiteral("sk-legacy"));
        QCOMPARE(contents(s.filePath()), QByteArray(" sk-legacy \n")); // copied, not rewritten
        QCOMPARE(modeOf(s.filePath()), ownerOnly(false));
        QCOMPARE(modeOf(s.directory()), ownerOnly(true));
        QVERIFY(QFile::exists(legacy));

        // An existing current file is never replaced by the legacy one.
        s.save(QStringLiteral("sk-current"));
        write(legacy, "sk-other");
        s.migrateIfNeeded();
        QCOMPARE(contents(s.filePath()), QByteArray("sk-current"));
    }

    void migrationFailuresAreSilent()
    {
        // The key folder's place is taken by a file: nothing can be copied or saved.
        const SecretStore s = store();
        write(s.legacyDirectory() + QStringLiteral("/openai.key"), "sk-legacy");
        write(s.directory(), "not a folder");
        s.migrateIfNeeded();
        s.save(QStringLiteral("sk-new"));
        QCOMPARE(s.readKeyFile(), std::nullopt);
        QCOMPARE(s.loadKey(), QString());
    }

    void theKeyNeverReachesTheLog()
    {
        const QString key = QStringLiteral("sk-SECRET-7f3a9c");
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=true"));
        g_messages.clear();
        const QtMessageHandler previous = qInstallMessageHandler(capture);
        {
            const SecretStore s = store();
            write(s.legacyDirectory() + QStringLiteral("/openai.key"), key.toUtf8());
            AppSettings settings(std::make_unique<QSettings>(m_dir->filePath(QStringLiteral("s.conf")),
                                                             QSettings::NativeFormat),
                                 s);
            QCOMPARE(settings.apiKey(), key);
            settings.setApiKey(key + QStringLiteral("2"));
            settings.setApiKey(QString());
            QVERIFY(!settings.instructions().contains(key));
        }
        qInstallMessageHandler(previous);
        for (const QString &message : std::as_const(g_messages))
            QVERIFY2(!message.contains(QStringLiteral("SECRET")), qPrintable(message));
        QVERIFY(!contents(m_dir->filePath(QStringLiteral("s.conf"))).contains("SECRET"));
    }
};

QTEST_GUILESS_MAIN(TestSecretStore)
#include "tst_secretstore.moc"
