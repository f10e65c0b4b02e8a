// The window over a session controller driven by fakes: the control bar's bindings, the
// banner, window behaviour (on top, appearance, remembered frame) and its commands.
// The dialogs it opens are tested in tst_ui_dialogs.cpp.
#include "UiRig.h"

#include "ui/AnswerTimerView.h"
#include "ui/BannerView.h"
#include "ui/Colors.h"
#include "ui/ControlBar.h"
#include "ui/Icons.h"
#include "ui/LevelMeter.h"
#include "ui/QACard.h"
#include "ui/SessionReviewOpener.h"
#include "ui/SettingsDialog.h"
#include "ui/StatusPill.h"
#include "ui/WindowActions.h"

#include <QAbstractButton>
#include <QAction>
#include <QClipboard>
#include <QDesktopServices>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QToolButton>

// Takes the file addresses QDesktopServices would hand to the desktop.
class UrlCatcher : public QObject
{
    Q_OBJECT
public:
    QList<QUrl> opened;
    Q_INVOKABLE void open(const QUrl &url) { opened << url; }
};

class MainWindowTest : public QObject
{
    Q_OBJECT

private slots:
    void startStopButtonAndShortcut()
    {
        UiRig rig;
        UiRig::showAndWait(rig.window.get());
        QPushButton *button = rig.window->controlBar()->startStopButton();
        QCOMPARE(button->text(), QStringLiteral("Start"));
        QCOMPARE(button->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Return));

        // Without a key, Start explains itself in the banner, with a way to the settings.
        QVERIFY(rig.window->bannerView()->isHidden());
        // The shortcut clicks the button (an animated click, so it lands shortly after).
        QTest::keyClick(rig.window.get(), Qt::Key_Return, Qt::ControlModifier);
        QTRY_COMPARE(rig.session.controller->banner(), QStringLiteral("Add your OpenAI API key before starting."));
        QVERIFY(rig.window->bannerView()->isVisible());
        QCOMPARE(rig.window->bannerView()->text(), QStringLiteral("Add your OpenAI API key before starting."));
        QCOMPARE(rig.window->bannerView()->buttonLabels(), QStringList{QStringLiteral("Open Settings")});
        emit rig.window->bannerView()->actionTriggered();
        QTRY_VERIFY(rig.window->settingsDialog() && rig.window->settingsDialog()->isVisible());
        rig.window->settingsDialog()->close();

        rig.session.prepareSettings();
        QTest::keyClick(rig.window.get(), Qt::Key_Return, Qt::ControlModifier);
        QTRY_VERIFY(rig.session.controller->isSessionActive());
        QCOMPARE(button->text(), QStringLiteral("Stop"));
        QVERIFY(rig.window->controlBar()->answerTimer()->isVisible());

        button->click();
        QVERIFY(!rig.session.controller->isSessionActive());
        QCOMPARE(button->text(), QStringLiteral("Start"));
        QVERIFY(rig.window->controlBar()->answerTimer()->isHidden());
    }

    void publishedStateReachesTheBar()
    {
        UiRig rig;
        UiRig::showAndWait(rig.window.get());
        ControlBar *bar = rig.window->controlBar();
        QVERIFY(rig.session.startSession());

        rig.session.client.status(RealtimeStatus::connecting());
        QCOMPARE(bar->statusPill()->text(), QStringLiteral("Connecting…"));
        rig.session.client.status(RealtimeStatus::connected());
        QCOMPARE(bar->statusPill()->text(), QStringLiteral("Live"));
        QCOMPARE(bar->statusPill()->dotColor(), Colors::green());

        rig.session.audio.levels(0.95f, 0.4f);
        QCOMPARE(bar->micMeter()->level(), 0.95f);
        QCOMPARE(bar->micMeter()->fillColor(), Colors::red());
        QCOMPARE(bar->meetingMeter()->fillColor(), Colors::green());

        // Speaking for 45 s turns the timer amber; the meeting clock runs.
        rig.session.clock.advance(44.8);
        QCOMPARE(bar->answerTimer()->color(), Colors::green());
        QVERIFY(bar->answerTimer()->isSpeaking());
        QCOMPARE(bar->answerTimer()->tintOpacity(), 0.14);
        rig.session.clock.advance(0.4);
        QCOMPARE(bar->answerTimer()->text(), QStringLiteral("45s"));
        QCOMPARE(bar->answerTimer()->color(), Colors::orange());
        QCOMPARE(bar->clockLabel()->text(), QStringLiteral("00:45"));
        rig.session.audio.levels(0.0f, 0.4f);
        rig.session.clock.advance(2.2);
        rig.session.audio.levels(0.0f, 0.4f);
        QVERIFY(!rig.session.controller->isSpeaking());
        QVERIFY(!bar->answerTimer()->isSpeaking());
        QCOMPARE(bar->answerTimer()->tintOpacity(), 0.08);

        // The interviewer asks the next question: the last answer's length is shown.
        rig.session.client.transcript(QStringLiteral("Next question?"));
        QVERIFY(bar->lastAnswerLabel()->isVisibleTo(bar));
        QVERIFY(bar->lastAnswerLabel()->text().startsWith(QStringLiteral("last ")));

        // A realtime failure stops the session and shows the message.
        rig.session.client.status(RealtimeStatus::failed(QStringLiteral("Invalid API key.")));
        QCOMPARE(bar->statusPill()->text(), QStringLiteral("Error"));
        QCOMPARE(bar->startStopButton()->text(), QStringLiteral("Start"));
    }

    void settingsBindings()
    {
        UiRig rig;
        ControlBar *bar = rig.window->controlBar();
        AppSettings &settings = rig.session.settings;

        QCOMPARE(bar->contextButton()->text(), QStringLiteral("Context"));
        settings.setContextFileNames({QStringLiteral("cv.pdf"), QStringLiteral("notes.md"), QStringLiteral("stories.txt")});
        QCOMPARE(bar->contextButton()->text(), QStringLiteral("Context (3)"));
        QCOMPARE(bar->jobButton()->text(), QStringLiteral("Job"));
        settings.setRoleTitle(QStringLiteral("Staff Engineer"));
        QCOMPARE(bar->jobButton()->text(), QStringLiteral("Staff Engineer"));

        QCOMPARE(bar->micMeter()->label(), QStringLiteral("Mic\u2298"));
        settings.setStreamSource(AppSettings::StreamSource::both);
        QCOMPARE(bar->micMeter()->label(), QStringLiteral("Mic"));
        QCOMPARE(bar->micMeter()->toolTip(), QStringLiteral("Mic audio is streamed to the model"));

        bar->saveWavToggle()->click();
        QVERIFY(settings.saveAudio());
        settings.setSaveAudio(false);
        QVERIFY(!bar->saveWavToggle()->isChecked());

        // Text size: buttons and menu commands, clamped to 10...36.
        settings.setFontSize(11);
        bar->smallerButton()->click();
        bar->smallerButton()->click();
        QCOMPARE(settings.fontSize(), 10.0);
        settings.setFontSize(35);
        rig.window->biggerTextAction()->trigger();
        rig.window->biggerTextAction()->trigger();
        QCOMPARE(settings.fontSize(), 36.0);
        rig.window->smallerTextAction()->trigger();
        QCOMPARE(settings.fontSize(), 35.0);
        rig.window->resetTextAction()->trigger();
        QCOMPARE(settings.fontSize(), 14.0);
        QCOMPARE(rig.transcript().cardFonts().answer.pointSizeF(), 14.0);
        settings.setFontSize(10);
        QCOMPARE(rig.transcript().cardFonts().meta.pointSizeF(), 9.0);
        QVERIFY(rig.window->biggerTextAction()->shortcuts().contains(QKeySequence(Qt::CTRL | Qt::Key_Plus)));
        QCOMPARE(rig.window->smallerTextAction()->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Minus));
        QCOMPARE(rig.window->resetTextAction()->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_0));
    }

    void everyControlIsNamedAndReachableByKeyboard()
    {
        UiRig rig;
        rig.playConversation();
        UiRig::showAndWait(rig.window.get());
        QList<QAbstractButton *> buttons = rig.window->controlBar()->findChildren<QAbstractButton *>();
        buttons += rig.transcript().findChildren<QAbstractButton *>();
        QVERIFY(buttons.size() >= 12);
        for (QAbstractButton *button : std::as_const(buttons)) {
            if (!button->isVisibleTo(rig.window.get()) || button->focusPolicy() == Qt::NoFocus)
                continue;   // hidden, or a second way to the same action (a card's chevron)
            QVERIFY2(button->focusPolicy() & Qt::TabFocus, qPrintable(button->text()));
            QVERIFY2(!button->text().isEmpty() || !button->accessibleName().isEmpty(),
                     qPrintable(button->toolTip()));
        }
        for (LevelMeter *meter : rig.window->controlBar()->findChildren<LevelMeter *>())
            QVERIFY(!meter->accessibleName().isEmpty());
    }

    void alwaysOnTopTakesEffectAtOnce()
    {
        UiRig rig;
        QVERIFY(rig.session.settings.alwaysOnTop());
        UiRig::showAndWait(rig.window.get());
        QVERIFY(rig.window->windowFlags() & Qt::WindowStaysOnTopHint);
        QVERIFY(rig.window->controlBar()->onTopToggle()->isChecked());
        QVERIFY(rig.window->alwaysOnTopAction()->isChecked());

        rig.window->controlBar()->onTopToggle()->click();
        QVERIFY(!rig.session.settings.alwaysOnTop());
        QVERIFY(!(rig.window->windowFlags() & Qt::WindowStaysOnTopHint));
        QVERIFY(rig.window->isVisible());
        QVERIFY(!rig.window->alwaysOnTopAction()->isChecked());

        rig.window->alwaysOnTopAction()->trigger();
        QVERIFY(rig.session.settings.alwaysOnTop());
        QVERIFY(rig.window->windowFlags() & Qt::WindowStaysOnTopHint);
        QVERIFY(rig.window->isVisible());
        QVERIFY(rig.window->controlBar()->onTopToggle()->isChecked());
    }

    void appearanceSwitching()
    {
        UiRig rig;
        AppSettings &settings = rig.session.settings;
        const QColor darkWindow = Theme::darkPalette().color(QPalette::Window);
        const QColor lightWindow = Theme::lightPalette().color(QPalette::Window);

        settings.setAppearance(AppSettings::Appearance::dark);
        QCOMPARE(QApplication::palette().color(QPalette::Window), darkWindow);
        QTRY_COMPARE(rig.window->palette().color(QPalette::Window), darkWindow);

        rig.window->toggleAppearanceAction()->trigger();
        QCOMPARE(settings.appearance(), AppSettings::Appearance::light);
        QTRY_COMPARE(rig.window->palette().color(QPalette::Window), lightWindow);
        rig.window->controlBar()->appearanceButton()->click();
        QCOMPARE(settings.appearance(), AppSettings::Appearance::dark);
        QCOMPARE(rig.window->toggleAppearanceAction()->shortcut(), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_L));

        // "Match system" returns to the desktop's palette; toggling from it flips what shows.
        settings.setAppearance(AppSettings::Appearance::system);
        QCOMPARE(QApplication::palette().color(QPalette::Window), Theme::systemPalette().color(QPalette::Window));
        QCOMPARE(WindowActions::toggled(AppSettings::Appearance::system, false), AppSettings::Appearance::dark);
        QCOMPARE(WindowActions::toggled(AppSettings::Appearance::system, true), AppSettings::Appearance::light);
    }

    void frameRestoreRules()
    {
        QVERIFY(!MainWindow::isRestorableFrame(QRect(10, 10, 300, 500)));
        QVERIFY(!MainWindow::isRestorableFrame(QRect(10, 10, 500, 299)));
        QVERIFY(MainWindow::isRestorableFrame(QRect(10, 10, 380, 300)));
        QVERIFY(!MainWindow::isRestorableFrame(QRect()));

        QRect saved;
        {
            UiRig rig;
            // Too narrow: ignored, the default frame stands.
            rig.session.settings.store().setValue(QLatin1String(MainWindow::frameKey), QRect(40, 40, 300, 500));
            rig.rebuildWindow();
            QCOMPARE(rig.window->size(), QSize(MainWindow::defaultWidth, MainWindow::defaultHeight));

            rig.session.settings.store().setValue(QLatin1String(MainWindow::frameKey), QRect(60, 70, 640, 720));
            rig.rebuildWindow();
            QCOMPARE(rig.window->size(), QSize(640, 720));
            UiRig::showAndWait(rig.window.get());

            // Later changes are written back.
            rig.window->resize(700, 760);
            QTRY_COMPARE(rig.session.settings.store().value(QLatin1String(MainWindow::frameKey)).toRect().size(),
                         QSize(700, 760));
            // The content never gets smaller than 420 by 400.
            rig.window->resize(200, 200);
            QTRY_VERIFY(rig.window->centralWidget()->width() >= MainWindow::minimumWidth);
            QVERIFY(rig.window->centralWidget()->height() >= MainWindow::minimumHeight);
        }
    }

    void bannerLinksRevealFiles()
    {
        UiRig rig;
        UiRig::showAndWait(rig.window.get());
        const QString transcript = rig.session.dir.filePath(QStringLiteral("meeting.transcript.md"));
        rig.session.controller->setBanner(QStringLiteral("Transcript saved"),
                                          {SessionController::makeLink(QStringLiteral("Transcript"),
                                                                       QUrl::fromLocalFile(transcript))});
        QCOMPARE(rig.window->bannerView()->buttonLabels(), QStringList{QStringLiteral("Transcript")});
        emit rig.window->bannerView()->revealRequested(transcript);
        QCOMPARE(rig.session.revealer.revealed.size(), 1);
        QCOMPARE(rig.session.revealer.revealed.first(), QStringList{transcript});

        // Copy Transcript puts the plain-text export on the clipboard.
        rig.session.client.transcript(QStringLiteral("Why payments?"));
        rig.window->copyTranscriptAction()->trigger();
        QCOMPARE(QApplication::clipboard()->text(), rig.session.controller->transcriptForExport());
        QVERIFY(QApplication::clipboard()->text().contains(QStringLiteral("Why payments?")));

        emit rig.window->bannerView()->closeRequested();
        QVERIFY(!rig.session.controller->bannerText());
        QVERIFY(rig.window->bannerView()->isHidden());
    }

    // The Stop banner's "Review" opens the page in the browser rather than in a folder, and
    // File ▸ Review a Session… writes and opens the page of an earlier session.
    void reviewPageOpens()
    {
        UiRig rig;
        UrlCatcher catcher;
        QDesktopServices::setUrlHandler(QStringLiteral("file"), &catcher, "open");
        const QString page = rig.session.dir.filePath(QStringLiteral("meeting.review.html"));
        rig.session.controller->setBanner(QStringLiteral("Transcript saved"),
                                          {SessionController::makeLink(QStringLiteral("Review"), QUrl::fromLocalFile(page))});
        QCOMPARE(rig.window->bannerView()->buttonLabels(), QStringList{QStringLiteral("Review")});
        emit rig.window->bannerView()->revealRequested(page);
        QCOMPARE(catcher.opened, QList<QUrl>{QUrl::fromLocalFile(page)});
        QVERIFY(rig.session.revealer.revealed.isEmpty());

        bool offered = false;
        for (const QAction *action : rig.window->findChildren<QAction *>())
            offered = offered || action->text() == QStringLiteral("Review a Session…");
        QVERIFY(offered);
        const QString events = rig.session.dir.filePath(QStringLiteral("meeting_2026-11-20_10-00-00.events.jsonl"));
        QVERIFY(QFile::copy(qEnvironmentVariable("KETTERBLOOM_SOURCE_DIR")
                                + QStringLiteral("/tests/review/data/meeting_2026-11-20_10-00-00.events.jsonl"), events));
        QCOMPARE(SessionReviewOpener::open(events, rig.session.settings), QString());
        QCOMPARE(catcher.opened.last(), QUrl::fromLocalFile(rig.session.dir.filePath(QStringLiteral("meeting_2026-11-20_10-00-00.review.html"))));
        QVERIFY(SessionReviewOpener::open(rig.session.dir.filePath(QStringLiteral("gone.events.jsonl")), rig.session.settings)
                    .contains(QStringLiteral("no such file")));
        QDesktopServices::unsetUrlHandler(QStringLiteral("file"));
    }

    void transcribeRecordingCommand()
    {
        UiRig rig;
        UiRig::showAndWait(rig.window.get());
        const QString wav = rig.session.dir.filePath(QStringLiteral("meeting_2026-11-21_14-05-09.wav"));
        rig.session.picker.choice = wav;
        rig.window->transcribeRecordingAction()->trigger();
        QCOMPARE(rig.session.picker.pickCount, 1);
        QCOMPARE(rig.session.recordingTranscriber.path, wav);
        QCOMPARE(rig.window->bannerView()->text(),
                 QStringLiteral("Transcribing meeting_2026-11-21_14-05-09.wav… this runs locally and takes a while."));
        rig.session.recordingTranscriber.progress(RecordingProgress{45.9, 90.2});
        QCOMPARE(rig.window->bannerView()->text(),
                 QStringLiteral("Transcribing meeting_2026-11-21_14-05-09.wav — 50% (45s of 90s)"));
        const QString written = rig.session.dir.filePath(QStringLiteral("meeting_2026-11-21_14-05-09.transcript.md"));
        rig.session.recordingTranscriber.completion(RecordingTranscription::Written{written});
        QCOMPARE(rig.window->bannerView()->text(),
                 QStringLiteral("Transcript written: meeting_2026-11-21_14-05-09.transcript.md"));
        QCOMPARE(rig.session.revealer.revealed.last(), QStringList{written});

        // Cancelling the file dialog does nothing.
        rig.session.picker.choice.reset();
        rig.session.recordingTranscriber.path.clear();
        rig.window->transcribeRecordingAction()->trigger();
        QVERIFY(rig.session.recordingTranscriber.path.isEmpty());
    }

    void noStaleStates()
    {
        UiRig rig;
        UiRig::showAndWait(rig.window.get());
        ControlBar *bar = rig.window->controlBar();
        // "Show files" before anything was saved: disabled, and it says why.
        QVERIFY(!bar->showFilesButton()->isEnabled());
        QCOMPARE(bar->showFilesButton()->toolTip(), ControlBar::showFilesDisabledHelp());

        // The user is still answering aloud when the session stops.
        rig.session.settings.setTranscribeMyAnswers(true);
        QVERIFY(rig.session.startSession());
        rig.session.client.exchange(QStringLiteral("Tell me about a hard bug."), QStringLiteral("r1"), QStringLiteral("The ledger race."));
        rig.session.audio.levels(0.4f);
        rig.session.clock.advance(0.4);
        rig.session.mic.partial(QStringLiteral("So the race was"));
        QCoreApplication::processEvents();
        QACard *card = rig.transcript().card(0);
        QVERIFY(rig.session.controller->pairs().first().myAnswerInProgress);
        QCOMPARE(card->myAnswerLabelText(), QStringLiteral("My answer (recording…)"));
        rig.session.controller->stop();
        QCoreApplication::processEvents();
        QVERIFY(!card->myAnswerLabelText().contains(QStringLiteral("recording")));

        // Something was saved: the button works and reveals it.
        QVERIFY(bar->showFilesButton()->isEnabled());
        QCOMPARE(bar->showFilesButton()->toolTip(), QStringLiteral("Reveal the saved .wav in ~/Documents/Ketterbloom"));
        bar->showFilesButton()->click();
        QCOMPARE(rig.session.revealer.revealed.size(), 1);

        // An action button goes with the banner text that offered it.
        rig.session.controller->setBanner(QStringLiteral("Add your CV first."),
                                          SessionController::BannerAction::openContext);
        QCOMPARE(rig.window->bannerView()->buttonLabels(), QStringList{QStringLiteral("Add Context")});
        rig.session.controller->setBanner(QStringLiteral("Session saved"), QList<SessionController::BannerLink>{});
        QVERIFY(rig.window->bannerView()->buttonLabels().isEmpty());
        rig.session.controller->setBanner(QStringLiteral("Add your CV first."),
                                          SessionController::BannerAction::openContext);
        rig.session.controller->setBannerText(QStringLiteral("Microphone unavailable"));
        QVERIFY(rig.window->bannerView()->buttonLabels().isEmpty());
    }

    void barActionsCanBeAddedAndHidden()
    {
        UiRig rig;
        rig.window->resize(900, 700);
        UiRig::showAndWait(rig.window.get());
        ControlBar *bar = rig.window->controlBar();
        QTRY_VERIFY(bar->overflowActions().isEmpty());
        // Another part of the program adds a button: it goes before Settings.
        auto *extra = new QAction(Icons::icon(Icons::Id::check), QStringLiteral("Check for Updates…"), bar);
        bar->addToolAction(extra);
        QCOMPARE(bar->toolActions().at(bar->toolActions().size() - 2), extra);
        QVERIFY(bar->buttonFor(extra));
        // A hidden action leaves the bar and the menu alike.
        QAction *onTop = bar->onTopToggle()->defaultAction();
        onTop->setVisible(false);
        QTRY_VERIFY(bar->onTopToggle()->isHidden());
        rig.window->resize(430, 500);
        QTRY_VERIFY(!bar->overflowActions().isEmpty());
        QVERIFY(!bar->overflowActions().contains(onTop));
        QVERIFY(bar->overflowActions().contains(extra));
        onTop->setVisible(true);
        QTRY_VERIFY(bar->overflowActions().contains(onTop));
    }

    void offScreenFrameComesBack()
    {
        const QRect primary(0, 0, 1920, 1080);
        const QList<QRect> screens{QRect(0, 0, 1920, 1080), QRect(1920, 0, 1280, 1024)};
        // On a screen, or mostly on one: kept.
        QCOMPARE(MainWindow::placedFrame(QRect(100, 100, 560, 680), screens, primary), QRect(100, 100, 560, 680));
        QCOMPARE(MainWindow::placedFrame(QRect(2000, 50, 560, 680), screens, primary), QRect(2000, 50, 560, 680));
        QCOMPARE(MainWindow::placedFrame(QRect(1600, 100, 560, 680), screens, primary), QRect(1600, 100, 560, 680));
        // On a monitor that is gone, or mostly off every screen: onto the primary one.
        const QRect gone = MainWindow::placedFrame(QRect(3400, 200, 560, 680), screens, primary);
        QCOMPARE(gone.size(), QSize(560, 680));
        QVERIFY(primary.contains(gone));
        const QRect hanging = MainWindow::placedFrame(QRect(-500, 900, 560, 680), screens, primary);
        QVERIFY(primary.contains(hanging));
        // Larger than the screen: shrunk to it.
        QCOMPARE(MainWindow::placedFrame(QRect(5000, 0, 3000, 2000), screens, primary), primary);

        UiRig rig;
        rig.session.settings.store().setValue(QLatin1String(MainWindow::frameKey), QRect(9000, 9000, 600, 700));
        rig.rebuildWindow();
        const QRect available = QGuiApplication::primaryScreen()->availableGeometry();
        QVERIFY(available.intersects(rig.window->geometry()));
        QCOMPARE(rig.window->size(), QSize(600, 700).boundedTo(available.size()));
    }
};

QTEST_MAIN(MainWindowTest)
#include "tst_main_window.moc"
