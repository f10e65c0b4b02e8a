// File reveal and idle inhibit against a private session bus on which the test plays the
// desktop's file manager and screen saver.
#include "PrivateBus.h"

#include "ui/DBusFileRevealer.h"
#include "ui/DBusIdleInhibitor.h"
#include "ui/DialogRecordingPicker.h"
#include "ui/DialogTranscriptionPrompt.h"

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>
#include <QStandardPaths>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QTemporaryDir>
#include <QTest>

class FakeFileManager : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    QList<QStringList> shown;
public slots:
    void ShowItems(const QStringList &uris, const QString &startupId)
    {
        Q_UNUSED(startupId);
        shown.append(uris);
    }
};

class FakeScreenSaver : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.ScreenSaver")
public:
    QStringList reasons;
    QList<uint> released;
    uint nextCookie = 41;
public slots:
    uint Inhibit(const QString &application, const QString &reason)
    {
        Q_UNUSED(application);
        reasons.append(reason);
        return ++nextCookie;
    }
    void UnInhibit(uint cookie) { released.append(cookie); }
};

class DesktopServicesTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    PrivateBus m_bus;
    FakeFileManager m_fileManager;
    FakeScreenSaver m_screenSaver;

    QDBusConnection desktop() const { return QDBusConnection(QStringLiteral("desktop")); }

    void publish(const QString &service, const QString &path, QObject *object)
    {
        QVERIFY(desktop().registerObject(path, object, QDBusConnection::ExportAllSlots));
        QVERIFY(desktop().registerService(service));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        // No service is ever activated: a file manager installed here must not answer.
        if (!m_bus.start())
            QSKIP("dbus-daemon could not be started (scripts/install-deps --tests installs it)");
        qputenv("DBUS_SESSION_BUS_ADDRESS", m_bus.address().toUtf8());
        QVERIFY(QDBusConnection::sessionBus().isConnected());
        QVERIFY(QDBusConnection::connectToBus(m_bus.address(), QStringLiteral("desktop")).isConnected());
    }

    void cleanupTestCase()
    {
        QDBusConnection::disconnectFromBus(QStringLiteral("desktop"));
        m_bus.stop();
    }

    void revealSelectsTheFilesInTheFileManager()
    {
        publish(QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
                &m_fileManager);
        QList<QUrl> opened;
        DBusFileRevealer revealer(nullptr, [&opened](const QUrl &folder) { opened.append(folder); });
        revealer.reveal({QStringLiteral("/home/ada/Documents/Ketterbloom/meeting 1.transcript.md"),
                         QStringLiteral("/home/ada/Documents/Ketterbloom/meeting 1.wav")});
        QTRY_COMPARE(m_fileManager.shown.size(), 1);
        QCOMPARE(m_fileManager.shown.first(),
                 (QStringList{QStringLiteral("file:///home/ada/Documents/Ketterbloom/meeting%201.transcript.md"),
                              QStringLiteral("file:///home/ada/Documents/Ketterbloom/meeting%201.wav")}));
        QTest::qWait(50);
        QVERIFY(opened.isEmpty());
        desktop().unregisterService(QStringLiteral("org.freedesktop.FileManager1"));
        desktop().unregisterObject(QStringLiteral("/org/freedesktop/FileManager1"));
    }

    void revealWithoutFileManagerOpensTheFolder()
    {
        QList<QUrl> opened;
        DBusFileRevealer revealer(nullptr, [&opened](const QUrl &folder) { opened.append(folder); });
        revealer.reveal({m_dir.filePath(QStringLiteral("meeting.wav"))});
        // A call nobody answers falls back only at its own 5 s time-out (seen on Debian 13).
        QTRY_COMPARE_WITH_TIMEOUT(opened.size(), 1, 10000);
        QCOMPARE(opened.first(), QUrl::fromLocalFile(m_dir.path()));
        revealer.reveal({});
        QTest::qWait(50);
        QCOMPARE(opened.size(), 1);
    }

    void idleInhibitHoldsAndReleases()
    {
        publish(QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("/org/freedesktop/ScreenSaver"),
                &m_screenSaver);
        {
            DBusIdleInhibitor inhibitor;
            inhibitor.inhibit(QStringLiteral("Live meeting transcription"));
            inhibitor.inhibit(QStringLiteral("Live meeting transcription"));   // held once only
            QTRY_VERIFY(inhibitor.cookie().has_value());
            QCOMPARE(m_screenSaver.reasons, QStringList{QStringLiteral("Live meeting transcription")});
            const uint cookie = *inhibitor.cookie();
            inhibitor.release();
            QTRY_COMPARE(m_screenSaver.released, QList<uint>{cookie});
            inhibitor.release();   // nothing held: nothing sent
            QTest::qWait(50);
            QCOMPARE(m_screenSaver.released.size(), 1);

            // Released before the service answered: the inhibition is handed back on arrival.
            inhibitor.inhibit(QStringLiteral("Live meeting transcription"));
            inhibitor.release();
            QTRY_COMPARE(m_screenSaver.released.size(), 2);
            QVERIFY(!inhibitor.cookie());

            // Destroyed while holding one: given back too.
            inhibitor.inhibit(QStringLiteral("Live meeting transcription"));
            QTRY_VERIFY(inhibitor.cookie().has_value());
        }
        QTRY_COMPARE(m_screenSaver.released.size(), 3);
        desktop().unregisterService(QStringLiteral("org.freedesktop.ScreenSaver"));
        desktop().unregisterObject(QStringLiteral("/org/freedesktop/ScreenSaver"));
    }

    void idleInhibitWithoutServiceDoesNothing()
    {
        DBusIdleInhibitor inhibitor;
        inhibitor.inhibit(QStringLiteral("Live meeting transcription"));
        QTest::qWait(200);
        QVERIFY(!inhibitor.cookie());
        inhibitor.release();
    }

    void recordingPickerOffersTheSavedWavs()
    {
        const QString folder =
            QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) + QStringLiteral("/Ketterbloom");
        QVERIFY(QDir().mkpath(folder));
        QFile wav(folder + QStringLiteral("/meeting_2025-03-04_14-05-09.wav"));
        QVERIFY(wav.open(QIODevice::WriteOnly));
        wav.write(QByteArray(44, '\0'));
        wav.close();

        DialogRecordingPicker picker;
        QList<std::optional<QString>> answers;
        const auto openDialog = [&] {
            picker.pickRecording([&answers](const std::optional<QString> &path) { answers.append(path); });
            QFileDialog *dialog = nullptr;
            for (QWidget *w : QApplication::topLevelWidgets()) {
                if (auto *d = qobject_cast<QFileDialog *>(w); d && d->isVisible())
                    dialog = d;
            }
            return dialog;
        };

        QFileDialog *dialog = openDialog();
        QVERIFY(dialog);
        QCOMPARE(QDir(dialog->directory()).canonicalPath(), QDir(folder).canonicalPath());
        QVERIFY(dialog->nameFilters().join(QLatin1Char(' ')).contains(QStringLiteral("*.wav")));
        QCOMPARE(dialog->labelText(QFileDialog::Accept), QStringLiteral("Transcribe"));
        dialog->selectFile(wav.fileName());
        static_cast<QDialog *>(dialog)->accept();   // as the Transcribe button does
        QTRY_COMPARE(answers.size(), 1);
        QCOMPARE(QFileInfo(answers.first().value_or(QString())).canonicalFilePath(),
                 QFileInfo(wav.fileName()).canonicalFilePath());

        dialog = openDialog();
        QVERIFY(dialog);
        dialog->reject();
        QTRY_COMPARE(answers.size(), 2);
        QVERIFY(!answers.last().has_value());
    }

    void transcriptionPromptMapsItsButtons()
    {
        using Answer = RecordingTranscriptionPrompt::Answer;
        DialogTranscriptionPrompt prompt;
        QList<Answer> answers;
        const auto ask = [&] {
            prompt.ask({QStringLiteral("Transcribe meeting.wav"), QStringLiteral("With OpenAI, the recording's audio …")},
                       [&answers](Answer answer) { answers.append(answer); });
            QMessageBox *box = prompt.openQuestion();
            return box && QTest::qWaitFor([box] { return box->isVisible(); }) ? box : nullptr;
        };
        const auto button = [](QMessageBox *box, const QString &label) -> QAbstractButton * {
            for (QAbstractButton *b : box->buttons()) {
                if (b->text().remove(QLatin1Char('&')) == label)
                    return b;
            }
            return nullptr;
        };

        QMessageBox *box = ask();
        QVERIFY(box);
        QCOMPARE(box->windowTitle(), QStringLiteral("Transcribe meeting.wav"));
        QCOMPARE(box->buttons().size(), 3);
        QCOMPARE(static_cast<QAbstractButton *>(box->defaultButton()), button(box, QStringLiteral("On This Computer"))); // Enter keeps it here
        button(box, QStringLiteral("With OpenAI"))->click();
        QTRY_COMPARE(answers, QList<Answer>{Answer::withService});

        box = ask();
        QVERIFY(box);
        button(box, QStringLiteral("On This Computer"))->click();
        QTRY_COMPARE(answers.size(), 2);
        QCOMPARE(answers.last(), Answer::onThisComputer);

        box = ask();
        QVERIFY(box);
        QTest::keyClick(box, Qt::Key_Escape);
        QTRY_COMPARE(answers.size(), 3);
        QCOMPARE(answers.last(), Answer::cancel);
    }
};

QTEST_MAIN(DesktopServicesTest)
#include "tst_desktop_services.moc"
