// Renders the window and its dialogs offscreen and writes them as PNG files into
// <build>/screenshots, so that anyone can look at them.
#include "UiRig.h"

#include "ui/ContextPanel.h"
#include "ui/JobContextDialog.h"
#include "ui/OnboardingDialog.h"
#include "ui/QACard.h"
#include "ui/SettingsDialog.h"

#include <QImage>
#include <QTabWidget>
#include <QScrollArea>
#include <QScrollBar>

class ScreenshotsTest : public QObject
{
    Q_OBJECT

private:
    static void save(QWidget *widget, const QString &name)
    {
        widget->show();
        QVERIFY(QTest::qWaitForWindowExposed(widget));
        // Let layouts settle and the follow-the-bottom scroll land.
        QTest::qWait(300);
        const QString path = UiRig::screenshotDir() + QLatin1Char('/') + name + QStringLiteral(".png");
        const QImage image = widget->grab().toImage();
        QVERIFY(!image.isNull());
        QVERIFY(image.save(path));
        qInfo("wrote %s", qPrintable(path));
    }

    static void openMyAnswer(UiRig &rig)
    {
        const QList<QAPair> &pairs = rig.session.controller->pairs();
        for (const QAPair &pair : pairs) {
            if (!pair.myAnswer.isEmpty())
                rig.transcript().toggleMyAnswer(pair.id);
        }
    }

    static void mainWindow(AppSettings::Appearance appearance, const QString &name)
    {
        UiRig rig;
        rig.session.settings.setAppearance(appearance);
        rig.session.settings.setRoleTitle(QStringLiteral("Staff Engineer"));
        rig.session.settings.setContextFileNames({QStringLiteral("cv.pdf"), QStringLiteral("stories.md")});
        rig.playConversation();
        rig.session.client.status(RealtimeStatus::connected());
        rig.session.audio.levels(0.62f, 0.35f);
        openMyAnswer(rig);
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

private slots:
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
        UiRig rig;
        rig.session.settings.setAppearance(AppSettings::Appearance::light);
        rig.session.taps.apps = {{7, QStringLiteral("org.mozilla.firefox"), QStringLiteral("Firefox")}};
        rig.window->show();
        rig.window->openSettings();
        SettingsDialog *dialog = rig.window->settingsDialog();
        for (int tab = 0; tab < dialog->tabs()->count(); ++tab) {
            dialog->tabs()->setCurrentIndex(tab);
            save(dialog, QStringLiteral("settings-%1").arg(tab + 1));
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
        save(rig.window->contextPanel(), QStringLiteral("context-panel"));
    }
};

QTEST_MAIN(ScreenshotsTest)
#include "tst_ui_screenshots.moc"
