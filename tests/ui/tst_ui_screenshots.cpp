// Renders the window and its dialogs offscreen and writes them as PNG files into
// <build>/screenshots, so that anyone can look at them, and checks what a glance needs: the
// control bar is one row at every width, no button label is cut, the banner leaves room for
// the cards, and text and control borders stand out enough in both palettes.
#include "UiRig.h"

#include "ui/AnswerTimerView.h"
#include "ui/BannerView.h"
#include "ui/Colors.h"
#include "ui/ControlBar.h"
#include "ui/DemoRibbon.h"

#include "ui/ContextPanel.h"
#include "ui/JobContextDialog.h"
#include "ui/OnboardingDialog.h"
#include "ui/QACard.h"
#include "ui/SettingsDialog.h"

#include <QAbstractButton>
#include <QCheckBox>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QPdfWriter>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QTabWidget>
#include <QToolButton>
#include <QScrollArea>
#include <QScrollBar>

#include <algorithm>
#include <limits>

class ScreenshotsTest : public QObject
{
    Q_OBJECT

private:
    static void save(QWidget *widget, const QString &name, int waitMs = 300)
    {
        widget->show();
        QVERIFY(QTest::qWaitForWindowExposed(widget));
        // Let layouts settle and the follow-the-bottom scroll land.
        QTest::qWait(waitMs);
        const QString path = UiRig::screenshotDir() + QLatin1Char('/') + name + QStringLiteral(".png");
        const QImage image = widget->grab().toImage();
        QVERIFY(!image.isNull());
        QVERIFY(image.save(path));
        qInfo("wrote %s", qPrintable(path));
    }

    // A live session with a role and context: the conversation played, connected, levels
    // moving, and the user's own answer opened on its card.
    static void liveSession(UiRig &rig)
    {
        rig.session.settings.setRoleTitle(QStringLiteral("Staff Engineer"));
        rig.session.settings.setContextFileNames({QStringLiteral("cv.pdf"), QStringLiteral("stories.md")});
        rig.playConversation();
        rig.session.client.status(RealtimeStatus::connected());
        rig.session.audio.levels(0.62f, 0.35f);
        for (const QAPair &pair : rig.session.controller->pairs()) {
            if (!pair.myAnswer.isEmpty())
                rig.transcript().toggleMyAnswer(pair.id);
        }
    }

    static void mainWindow(AppSettings::Appearance appearance, const QString &name)
    {
        UiRig rig;
        rig.session.settings.setAppearance(appearance);
        liveSession(rig);
        rig.window->resize(560, 860);
        save(rig.window.get(), name);

        // The cards a streaming answer is written into show what they should.
        const QList<QAPair> &pairs = rig.session.controller->pairs();
        QCOMPARE(rig.transcript().cardCount(), pairs.size());
        bool sawExtended = false;
        bool sawMyAnswer = false;
        for (int i = 0; i < rig.transcript().cardCount(); ++i) {
            QACard *card = rig.transcript().card(i);
            sawExtended = sawExtended || card->isUpdatedBadgeShown();
            sawMyAnswer = sawMyAnswer || card->isMyAnswerTextShown();
        }
        QVERIFY(sawExtended);
        QVERIFY(sawMyAnswer);
        QVERIFY(!pairs.last().isComplete);
    }

    // Every visible child of the bar shares one band of height: one row.
    static void checkBarIsOneRow(ControlBar *bar, const QString &where)
    {
        int top = std::numeric_limits<int>::min();
        int bottom = std::numeric_limits<int>::max();
        int shown = 0;
        for (QWidget *child : bar->findChildren<QWidget *>(Qt::FindDirectChildrenOnly)) {
            if (!child->isVisibleTo(bar) || child->isWindow())
                continue;
            ++shown;
            const QRect g = child->geometry();
            top = qMax(top, g.top());
            bottom = qMin(bottom, g.bottom());
            QVERIFY2(g.left() >= 0 && g.right() < bar->width(),
                     qPrintable(where + QStringLiteral(": %1 runs out of the bar").arg(child->metaObject()->className())));
        }
        QVERIFY2(shown >= 5, qPrintable(where));
        QVERIFY2(top < bottom, qPrintable(where + QStringLiteral(": the bar wraps")));
        // Nothing overlaps: left to right, each starts after the one before ends.
        QList<QRect> boxes;
        for (QWidget *child : bar->findChildren<QWidget *>(Qt::FindDirectChildrenOnly)) {
            if (child->isVisibleTo(bar) && !child->isWindow())
                boxes.append(child->geometry());
        }
        std::sort(boxes.begin(), boxes.end(), [](const QRect &a, const QRect &b) { return a.left() < b.left(); });
        QStringList layout;
        for (const QRect &r : boxes)
            layout << QStringLiteral("%1..%2").arg(r.left()).arg(r.right());
        for (qsizetype i = 1; i < boxes.size(); ++i) {
            if (boxes.at(i).left() <= boxes.at(i - 1).right())
                qInfo("%s: bar %s", qPrintable(where), qPrintable(layout.join(QLatin1Char(' '))));
            QVERIFY2(boxes.at(i).left() > boxes.at(i - 1).right(),
                     qPrintable(where + QStringLiteral(": controls overlap at x=%1").arg(boxes.at(i).left())));
        }
        // Buttons that did not fit are in the menu, not lost.
        int inBar = 0;
        int offered = 0;
        for (QAction *action : bar->toolActions()) {
            inBar += bar->buttonFor(action)->isVisibleTo(bar) ? 1 : 0;
            offered += action->isVisible() ? 1 : 0;
        }
        QCOMPARE(inBar + bar->overflowActions().size(), offered);
        QCOMPARE(bar->overflowButton()->isVisibleTo(bar), !bar->overflowActions().isEmpty());
    }

    // No visible button is narrower than its label needs.
    static void checkNothingElided(QWidget *root, const QString &where)
    {
        for (QAbstractButton *button : root->findChildren<QAbstractButton *>()) {
            if (!button->isVisibleTo(root))
                continue;
            QVERIFY2(button->width() >= button->sizeHint().width(),
                     qPrintable(where + QStringLiteral(": \"%1\" is cut (%2 < %3)")
                                           .arg(button->text())
                                           .arg(button->width())
                                           .arg(button->sizeHint().width())));
        }
    }

    static void checkContrast(UiRig &rig, const QString &where)
    {
        const QPalette pal = rig.window->palette();
        // The answer timer's digits on their tint, in every colour and both states.
        AnswerTimerView timer;
        timer.setPalette(pal);
        for (double seconds : {10.0, 50.0, 100.0}) {
            for (bool speaking : {true, false}) {
                timer.setState(speaking, seconds);
                const double ratio = Colors::contrast(timer.textColor(), timer.backgroundColor());
                QVERIFY2(ratio >= 4.5, qPrintable(where + QStringLiteral(": timer at %1 s %2:1").arg(seconds).arg(ratio)));
            }
        }
        // The empty state's text and hints.
        const QColor window = pal.color(QPalette::Window);
        QVERIFY2(Colors::contrast(pal.color(QPalette::PlaceholderText), window) >= 4.5, qPrintable(where));
        QVERIFY2(Colors::contrast(pal.color(QPalette::WindowText), window) >= 4.5, qPrintable(where));
        // Check box and radio button borders against the window and a field.
        QVERIFY2(Colors::contrast(Colors::controlBorder(pal), window) >= 3.0, qPrintable(where));
        QVERIFY2(Colors::contrast(Colors::controlBorder(pal), pal.color(QPalette::Base)) >= 3.0, qPrintable(where));
        QVERIFY2(Colors::contrast(pal.color(QPalette::Highlight), window) >= 3.0, qPrintable(where));
        // Every text of every card on the card's background.
        for (int i = 0; i < rig.transcript().cardCount(); ++i) {
            QACard *card = rig.transcript().card(i);
            const QColor background = Colors::cardBackground(card->palette());
            for (QLabel *label : card->textLabels()) {
                if (!label->isVisibleTo(card) || label->text().isEmpty())
                    continue;
                const QColor text = Colors::over(label->palette().color(QPalette::WindowText), background);
                const double ratio = Colors::contrast(text, background);
                QVERIFY2(ratio >= 4.5, qPrintable(where + QStringLiteral(": \"%1\" %2:1").arg(label->text().left(30)).arg(ratio)));
            }
        }
    }

private slots:
    // The window at the minimum, default and a wide size, light and dark, at 10, 14 and 36
    // point answer text: while an answer streams and after Stop with the "saved" banner.
    void windowMatrix_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<bool>("dark");
        QTest::addColumn<double>("points");
        for (const QSize size : {QSize(420, 400), QSize(560, 700), QSize(900, 700)}) {
            for (bool dark : {false, true}) {
                for (double points : {10.0, 14.0, 36.0}) {
                    const QString name = QStringLiteral("%1x%2-%3-%4pt")
                                             .arg(size.width())
                                             .arg(size.height())
                                             .arg(dark ? QStringLiteral("dark") : QStringLiteral("light"))
                                             .arg(points);
                    QTest::newRow(qPrintable(name)) << size << dark << points;
                }
            }
        }
    }

    void windowMatrix()
    {
        QFETCH(QSize, size);
        QFETCH(bool, dark);
        QFETCH(double, points);
        const QString name = QString::fromLatin1(QTest::currentDataTag());
        UiRig rig;
        rig.session.settings.setAppearance(dark ? AppSettings::Appearance::dark : AppSettings::Appearance::light);
        rig.session.settings.setFontSize(points);
        liveSession(rig);
        // The sizes are of the window's content, under its menu bar.
        rig.window->resize(size + QSize(0, rig.window->menuBar()->sizeHint().height()));
        save(rig.window.get(), QStringLiteral("window-") + name + QStringLiteral("-streaming"), 120);
        QCOMPARE(rig.window->centralWidget()->size(), size);
        ControlBar *bar = rig.window->controlBar();
        checkBarIsOneRow(bar, name);
        checkNothingElided(bar, name);
        checkContrast(rig, name);
        QVERIFY(rig.window->controlBar()->answerTimer()->isVisible());

        // After Stop: the banner with its links, a third of the window at most.
        rig.session.controller->stop();
        rig.session.client.status(RealtimeStatus::idle());   // as the real client reports
        QVERIFY(rig.window->bannerView()->isVisible());
        save(rig.window.get(), QStringLiteral("window-") + name + QStringLiteral("-stopped"), 120);
        BannerView *banner = rig.window->bannerView();
        QVERIFY2(banner->height() <= rig.window->height() / 3 + 1,
                 qPrintable(QStringLiteral("%1: banner %2 of %3").arg(name).arg(banner->height()).arg(rig.window->height())));
        QVERIFY(!banner->buttonLabels().isEmpty());
        checkNothingElided(banner, name + QStringLiteral(" banner"));
        checkBarIsOneRow(bar, name + QStringLiteral(" stopped"));
        // The cards keep most of the window.
        QVERIFY(rig.transcript().height() >= rig.window->height() / 3);
    }

    void mainWindowLight() { mainWindow(AppSettings::Appearance::light, QStringLiteral("main-window-light")); }
    void mainWindowDark() { mainWindow(AppSettings::Appearance::dark, QStringLiteral("main-window-dark")); }

    void mainWindowScrolledUp()
    {
        UiRig rig;
        rig.session.settings.setAppearance(AppSettings::Appearance::light);
        rig.playConversation();
        rig.window->resize(440, 480);
        save(rig.window.get(), QStringLiteral("main-window-minimum-following"));
        QScrollBar *bar = rig.transcript().scrollArea()->verticalScrollBar();
        QVERIFY(bar->maximum() > 0);
        QCOMPARE(bar->value(), bar->maximum());
        bar->setValue(0);
        rig.session.client.delta(QStringLiteral("r5"), QStringLiteral(" spend the second month shipping one small "
                                                                        "thing end to end with the team."));
        QTRY_VERIFY(rig.transcript().hasUnseenBelow());
        save(rig.window.get(), QStringLiteral("main-window-new-answers-below"));
    }

    void emptyWindowWithBanner()
    {
        UiRig rig;
        rig.session.settings.setAppearance(AppSettings::Appearance::light);
        rig.session.controller->start();
        rig.window->resize(440, 480);
        save(rig.window.get(), QStringLiteral("main-window-empty-no-key"));
    }

    void settingsDialog()
    {
        for (bool dark : {false, true}) {
            UiRig rig;
            rig.session.settings.setAppearance(dark ? AppSettings::Appearance::dark : AppSettings::Appearance::light);
            rig.session.settings.setSaveAudio(true);
            rig.session.taps.apps = {{7, QStringLiteral("org.mozilla.firefox"), QStringLiteral("Firefox")}};
            rig.window->show();
            rig.window->openSettings();
            SettingsDialog *dialog = rig.window->settingsDialog();
            for (int tab = 0; tab < dialog->tabs()->count(); ++tab) {
                dialog->tabs()->setCurrentIndex(tab);
                save(dialog, QStringLiteral("settings-%1-%2").arg(dark ? QStringLiteral("dark") : QStringLiteral("light")).arg(tab + 1), 150);
                checkNothingElided(dialog, QStringLiteral("settings tab %1").arg(tab + 1));
            }
        }
    }

    void onboarding()
    {
        UiRig rig(false);
        rig.session.settings.setAppearance(AppSettings::Appearance::light);
        rig.window->show();
        rig.window->openOnboarding();
        OnboardingDialog *dialog = rig.window->onboardingDialog();
        for (int page = 0; page < OnboardingDialog::pageCount; ++page) {
            dialog->goToPage(page);
            if (page == OnboardingDialog::audioPage && rig.audio.levelSink)
                rig.audio.levelSink(0.55f);
            save(dialog, QStringLiteral("onboarding-%1").arg(page + 1));
        }
    }

    // The sample interview at the smallest window, light and dark: offered on the welcome
    // step and in the empty window; while it runs, the ribbon says so and leads to the key.
    void sampleInterview()
    {
        for (bool dark : {false, true}) {
            const QString scheme = dark ? QStringLiteral("dark") : QStringLiteral("light");
            UiRig rig(false);
            rig.session.settings.setAppearance(dark ? AppSettings::Appearance::dark : AppSettings::Appearance::light);
            rig.window->resize(QSize(420, 400) + QSize(0, rig.window->menuBar()->sizeHint().height()));
            rig.window->show();
            QVERIFY(QTest::qWaitForWindowExposed(rig.window.get()));
            QVERIFY(rig.transcript().sampleInterviewButton()->isVisible());
            QSignalSpy wanted(rig.window.get(), &MainWindow::sampleInterviewRequested);
            rig.window->openOnboarding();
            OnboardingDialog *dialog = rig.window->onboardingDialog();
            dialog->resize(420, 400);
            save(dialog, QStringLiteral("welcome-sample-interview-") + scheme);
            checkNothingElided(dialog, QStringLiteral("welcome ") + scheme);
            QPushButton *sample = dialog->sampleInterviewButton();
            QVERIFY(sample->isVisible());
            QVERIFY(dialog->rect().contains(QRect(sample->mapTo(dialog, QPoint(0, 0)), sample->size())));
            sample->click();
            QCOMPARE(wanted.count(), 1);
            dialog->close();

            rig.window->showDemoRibbon();
            rig.playConversation();
            save(rig.window.get(), QStringLiteral("demo-ribbon-") + scheme, 120);
            DemoRibbon *ribbon = rig.window->demoRibbon();
            checkNothingElided(ribbon, QStringLiteral("ribbon ") + scheme);
            QVERIFY(!rig.transcript().sampleInterviewButton()->isVisibleTo(rig.window.get()));
            QPushButton *addKey = ribbon->addKeyButton();
            QVERIFY(ribbon->rect().contains(QRect(addKey->pos(), addKey->size())));
            QSignalSpy addKeyWanted(rig.window.get(), &MainWindow::addKeyRequested);
            addKey->click();
            QCOMPARE(addKeyWanted.count(), 1);
        }
    }

    void jobAndContext()
    {
        UiRig rig;
        rig.session.settings.setAppearance(AppSettings::Appearance::dark);
        rig.session.settings.setCompanyName(QStringLiteral("Northwind Labs"));
        rig.session.settings.setRoleTitle(QStringLiteral("Staff Engineer"));
        rig.session.settings.setJobDescription(QStringLiteral("Own the payments ledger end to end."));
        rig.session.settings.appendContext(QStringLiteral("----- cv.pdf -----\nTen years of payments."),
                                           {QStringLiteral("cv.pdf")});
        rig.window->show();
        rig.window->openJobContext();
        save(rig.window->jobContextDialog(), QStringLiteral("job-context"));
        rig.window->jobContextDialog()->close();
        rig.window->openContextPanel();
        // A scanned PDF and a long file beside one that reads: the panel says what each gave.
        QTemporaryDir dir;
        QPdfWriter scan(dir.filePath(QStringLiteral("scanned-cv.pdf")));
        QPainter(&scan).fillRect(QRect(0, 0, 100, 100), Qt::gray);
        ContextPanel *panel = rig.window->contextPanel();
        panel->addFiles({dir.filePath(QStringLiteral("scanned-cv.pdf")),
                         UiRig::writeFile(dir, QStringLiteral("stories.md"), QByteArray("Cut p99 latency by 40 %. ").repeated(1200))});
        QTRY_VERIFY(!panel->isReading());
        QVERIFY(panel->notesText().contains(QStringLiteral("scanned-cv.pdf: no text found")));
        save(panel, QStringLiteral("context-panel-notes"));
    }
};

QTEST_MAIN(ScreenshotsTest)
#include "tst_ui_screenshots.moc"
