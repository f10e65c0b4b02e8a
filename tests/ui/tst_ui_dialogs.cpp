// The dialogs of the window over a session controller driven by fakes: job context, context
// documents, settings and the first-run guide.
#include "HttpHeaders.h"
#include "UiRig.h"

#include "ui/ApiKeyField.h"
#include "ui/AudioSettingsPage.h"
#include "ui/ContextPanel.h"
#include "ui/ControlBar.h"
#include "ui/GeneralSettingsPage.h"
#include "ui/JobContextDialog.h"
#include "ui/LevelMeter.h"
#include "ui/ModelSettingsPage.h"
#include "ui/OnboardingDialog.h"
#include "ui/SettingsDialog.h"

#include <QAbstractButton>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFile>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QToolButton>

class DialogsTest : public QObject
{
    Q_OBJECT

private slots:
    void jobContextSavePushesInstructions()
    {
        UiRig rig;
        QVERIFY(rig.session.startSession());
        rig.window->openJobContext();
        JobContextDialog *dialog = rig.window->jobContextDialog();
        QVERIFY(dialog);
        dialog->companyEdit()->setText(QStringLiteral("Northwind Labs"));
        dialog->roleEdit()->setText(QStringLiteral("Staff Engineer"));
        dialog->descriptionEdit()->setPlainText(QStringLiteral("Own the payments ledger."));
        dialog->interviewerNameEdit(1)->setText(QStringLiteral("Priya Raman"));
        dialog->interviewerTitleEdit(1)->setText(QStringLiteral("VP Engineering"));
        dialog->save();
        QCOMPARE(rig.session.settings.companyName(), QStringLiteral("Northwind Labs"));
        QCOMPARE(rig.session.settings.interviewers().at(1).name, QStringLiteral("Priya Raman"));
        QCOMPARE(rig.session.client.instructionUpdates.size(), 1);
        QVERIFY(rig.session.client.instructionUpdates.first().contains(QStringLiteral("Priya Raman")));
        QVERIFY(rig.session.controller->banner().startsWith(QStringLiteral("Job context pushed to the live session")));
        QCOMPARE(rig.window->controlBar()->jobButton()->text(), QStringLiteral("Staff Engineer"));
    }

    void contextPanelAddsAndRemovesFiles()
    {
        UiRig rig;
        QTemporaryDir dir;
        UiRig::writeFile(dir, QStringLiteral("cv.txt"), "Led the ledger migration.");
        UiRig::writeFile(dir, QStringLiteral("notes.md"), "# Stories\nCut p99 latency by 40%.");
        UiRig::writeFile(dir, QStringLiteral("blank.txt"), "   \n ");

        rig.window->openContextPanel();
        ContextPanel *panel = rig.window->contextPanel();
        QVERIFY(panel);
        panel->addFiles({dir.filePath(QStringLiteral("blank.txt"))});
        QVERIFY(panel->isReading());   // off the GUI thread
        QTRY_VERIFY(!panel->isReading());
        QCOMPARE(panel->errorText(), QStringLiteral("Couldn't read any text from those files. A scanned PDF has no "
                                                    "text layer — export it as text first."));
        QVERIFY(rig.session.settings.contextFileNames().isEmpty());

        panel->addFiles({dir.filePath(QStringLiteral("cv.txt"))});
        panel->addFiles({dir.filePath(QStringLiteral("notes.md"))});
        QTRY_VERIFY(!panel->isReading());
        QCOMPARE(panel->errorText(), QString());
        QCOMPARE(panel->shownNames(), (QStringList{QStringLiteral("cv.txt"), QStringLiteral("notes.md")}));
        QCOMPARE(rig.window->controlBar()->contextButton()->text(), QStringLiteral("Context (2)"));
        QVERIFY(panel->sizeText().contains(QString::number(rig.session.settings.contextText().size())));

        panel->removeFile(QStringLiteral("cv.txt"));
        QCOMPARE(rig.session.settings.contextFileNames(), QStringList{QStringLiteral("notes.md")});
        QCOMPARE(rig.session.settings.contextText(),
                 QStringLiteral("----- notes.md -----\n# Stories\nCut p99 latency by 40%."));
        // A file that gives nothing beside one that reads: the panel names it.
        UiRig::writeFile(dir, QStringLiteral("more.md"), "More stories.");
        panel->addFiles({dir.filePath(QStringLiteral("blank.txt")), dir.filePath(QStringLiteral("more.md"))});
        QTRY_VERIFY(!panel->isReading());
        QCOMPARE(panel->errorText(), QString());
        QCOMPARE(panel->notesText(), QStringLiteral("blank.txt: no text found"));

        // "Clear All" asks first; Cancel keeps everything.
        panel->show();
        panel->clearAllButton()->click();
        QMessageBox *confirm = panel->clearConfirmation();
        QVERIFY(confirm);
        QTRY_VERIFY(confirm->isVisible());
        QVERIFY(confirm->text().contains(QStringLiteral("2 context documents")));
        QCOMPARE(confirm->defaultButton(), confirm->button(QMessageBox::Cancel));
        confirm->button(QMessageBox::Cancel)->click();
        QTRY_VERIFY(!panel->clearConfirmation());
        QCOMPARE(rig.session.settings.contextFileNames().size(), 2);
        panel->clearAllButton()->click();
        confirm = panel->clearConfirmation();
        QVERIFY(confirm);
        QAbstractButton *clear = nullptr;
        for (QAbstractButton *b : confirm->buttons())
            clear = confirm->buttonRole(b) == QMessageBox::DestructiveRole ? b : clear;
        QVERIFY(clear);
        QCOMPARE(clear->text(), QStringLiteral("Clear All"));
        clear->click();
        QVERIFY(rig.session.settings.contextText().isEmpty());
        QVERIFY(rig.session.settings.contextFileNames().isEmpty());
        QCOMPARE(rig.window->controlBar()->contextButton()->text(), QStringLiteral("Context"));
    }

    void contextPanelRequestFromTheController()
    {
        UiRig rig;
        UiRig::showAndWait(rig.window.get());
        rig.session.controller->setContextPanelRequested(true);
        QVERIFY(rig.window->contextPanel());
        QTRY_VERIFY(rig.window->contextPanel()->isVisible());
        QVERIFY(!rig.session.controller->contextPanelRequested());
    }

    void settingsDialogWritesThrough()
    {
        UiRig rig;
        rig.session.taps.apps = {{7, QStringLiteral("org.mozilla.firefox"), QStringLiteral("Firefox")},
                                 {0, QStringLiteral("zoom"), QStringLiteral("Zoom")}};
        rig.audio.devices.append({QStringLiteral("alsa_input.dante"), QStringLiteral("Dante Virtual Soundcard — 8 ch @ 48000 Hz"), 8});
        rig.window->openSettings();
        SettingsDialog *dialog = rig.window->settingsDialog();
        QVERIFY(dialog);
        AppSettings &settings = rig.session.settings;

        dialog->generalPage()->apiKeyField()->setText(QStringLiteral(" sk-from-dialog "));
        QVERIFY(!dialog->generalPage()->apiKeyField()->isRevealed());
        dialog->generalPage()->apiKeyField()->setRevealed(true);
        QVERIFY(dialog->generalPage()->apiKeyField()->isRevealed());
        dialog->close();
        QCOMPARE(settings.apiKey().trimmed(), QStringLiteral("sk-from-dialog"));
        QCOMPARE(settings.secretStore().readKeyFile(), std::optional<QString>(QStringLiteral("sk-from-dialog")));

        rig.window->openSettings();
        dialog = rig.window->settingsDialog();
        QCOMPARE(dialog->audioPage()->appCombo()->itemText(0), QStringLiteral("Firefox (playing)"));
        dialog->audioPage()->meetingSourceButton(AppSettings::MeetingSource::audioDevice)->click();
        QCOMPARE(settings.meetingSource(), AppSettings::MeetingSource::audioDevice);
        const int dante = dialog->audioPage()->deviceCombo()->findData(QStringLiteral("alsa_input.dante"));
        QVERIFY(dante > 0);
        QCOMPARE(dialog->audioPage()->deviceCombo()->itemText(dante), QStringLiteral("Dante Virtual Soundcard — 8 ch @ 48000 Hz"));
        dialog->audioPage()->deviceCombo()->setCurrentIndex(dante);
        emit dialog->audioPage()->deviceCombo()->activated(dante);
        QCOMPARE(settings.deviceUID(), QStringLiteral("alsa_input.dante"));
        QCOMPARE(dialog->audioPage()->micChannelSpin()->maximum(), 8);
        dialog->audioPage()->micChannelSpin()->setValue(3);
        QCOMPARE(settings.micChannel(), 2);

        dialog->modelPage()->promptEdit()->setPlainText(QStringLiteral("Be brief."));
        QCOMPARE(settings.systemPrompt(), QStringLiteral("Be brief."));

        settings.setFontSize(20);
        QCOMPARE(dialog->generalPage()->fontSizeSpin()->value(), 20.0);
        dialog->generalPage()->fontSizeSpin()->setValue(12);
        QCOMPARE(settings.fontSize(), 12.0);
    }

    void onboardingFlow()
    {
        UiRig rig(false);
        UiRig::showAndWait(rig.window.get());
        // Shown at launch while onboarding is not complete.
        QTRY_VERIFY(rig.window->onboardingDialog() && rig.window->onboardingDialog()->isVisible());
        OnboardingDialog *onboarding = rig.window->onboardingDialog();
        QCOMPARE(onboarding->currentPage(), int(OnboardingDialog::keyPage));
        onboarding->apiKeyField()->setText(QStringLiteral("sk-onboarded"));

        // The key is checked against the service (a stand-in on this machine) on request.
        QTcpServer service;
        QVERIFY(service.listen(QHostAddress::LocalHost));
        QByteArray request;
        connect(&service, &QTcpServer::newConnection, &service, [&service, &request] {
            QTcpSocket *socket = service.nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, socket, [socket, &request] {
                request += socket->readAll();
                if (!request.contains("\r\n\r\n"))
                    return;
                const bool good = kbtest::httpHeader(request, "Authorization") == "Bearer sk-onboarded";
                socket->write(good ? "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\n{}"
                                   : "HTTP/1.1 401 Unauthorized\r\nContent-Length: 2\r\nConnection: close\r\n\r\n{}");
                socket->disconnectFromHost();
            });
        });
        qputenv("KQ_REALTIME_URL", QStringLiteral("ws://127.0.0.1:%1/v1/realtime").arg(service.serverPort()).toUtf8());
        onboarding->checkKeyButton()->click();
        QVERIFY(!onboarding->checkKeyButton()->isEnabled());
        QTRY_VERIFY(onboarding->keyStatusText().startsWith(QStringLiteral("✓")));
        QVERIFY(request.startsWith("GET /v1/models "));
        onboarding->apiKeyField()->setText(QStringLiteral("sk-typo"));
        request.clear();
        onboarding->checkKey();
        QTRY_VERIFY(onboarding->keyStatusText().startsWith(QStringLiteral("✗")));
        QVERIFY(onboarding->keyStatusText().contains(QStringLiteral("401")));
        qunsetenv("KQ_REALTIME_URL");
        onboarding->apiKeyField()->setText(QStringLiteral("sk-onboarded"));
        onboarding->next();
        QCOMPARE(rig.session.settings.apiKey(), QStringLiteral("sk-onboarded"));

        // Context: what could not be read is said in the guide itself; readable files replace
        // the context.
        QTemporaryDir dir;
        onboarding->loadContextFiles({UiRig::writeFile(dir, QStringLiteral("scan.txt"), "  ")});
        QTRY_VERIFY(!onboarding->isReadingContext());
        QCOMPARE(onboarding->contextNoteText(),
                 QStringLiteral("Couldn't read any text from that file.\nscan.txt: no text found"));
        QVERIFY(!rig.session.controller->bannerText());
        rig.session.settings.setContextText(QStringLiteral("old"));
        onboarding->loadContextFiles({UiRig::writeFile(dir, QStringLiteral("cv.txt"), "Ten years of payments.")});
        QTRY_VERIFY(!onboarding->isReadingContext());
        QCOMPARE(rig.session.settings.contextText(), QStringLiteral("----- cv.txt -----\nTen years of payments."));
        QCOMPARE(rig.session.settings.contextFileNames(), QStringList{QStringLiteral("cv.txt")});
        QCOMPARE(onboarding->contextNoteText(), QString());
        onboarding->next();

        // Sound check with a live meter.
        QCOMPARE(onboarding->currentPage(), int(OnboardingDialog::audioPage));
        QVERIFY(onboarding->soundServerText().startsWith(QStringLiteral("✓")));
        QVERIFY(onboarding->microphoneText().startsWith(QStringLiteral("✓")));
        QVERIFY(rig.audio.levelSink);
        rig.audio.levelSink(0.42f);
        QCOMPARE(onboarding->micMeter()->level(), 0.42f);
        onboarding->next();
        QVERIFY(!rig.audio.levelSink);   // metering stops when the page is left

        QCOMPARE(onboarding->currentPage(), int(OnboardingDialog::donePage));
        QVERIFY(!rig.session.settings.hasCompletedOnboarding());
        onboarding->next();
        QVERIFY(rig.session.settings.hasCompletedOnboarding());
    }

    void onboardingWithoutSoundServer()
    {
        UiRig rig(false);
        rig.audio.serverAvailable = false;
        rig.window->openOnboarding();
        OnboardingDialog *onboarding = rig.window->onboardingDialog();
        onboarding->goToPage(OnboardingDialog::audioPage);
        QVERIFY(onboarding->soundServerText().startsWith(QStringLiteral("✗")));
        QVERIFY(onboarding->microphoneText().startsWith(QStringLiteral("✗")));
        QVERIFY(!rig.audio.levelSink);
    }
};

QTEST_MAIN(DialogsTest)
#include "tst_ui_dialogs.moc"
