// "Answer from screen" in the window: the action's state, the privacy note, the frozen
// screenshot with its region picker, the card's thumbnail, and Settings ▸ Answers. Rendered
// offscreen; screenshots go to <build>/screenshots.

#include "UiRig.h"

#include "screenshot/ScreenImage.h"
#include "ui/AnswersSettingsPage.h"
#include "ui/QACard.h"
#include "ui/ScreenQuestionFlow.h"
#include "ui/ScreenRegionPicker.h"
#include "ui/ScreenThumbnail.h"

#include <QAction>
#include <QComboBox>
#include <QSpinBox>
#include <QLineEdit>
#include <QPainter>
#include <QRadioButton>
#include <QSignalSpy>

namespace {

// A "screen" with a coding question in a box at (400, 300) - (1200, 600).
QImage codingScreen()
{
    QImage screen(1600, 1000, QImage::Format_RGB32);
    screen.fill(QColor(40, 44, 52));
    QPainter painter(&screen);
    painter.fillRect(QRect(400, 300, 800, 300), QColor(250, 250, 250));
    painter.setPen(Qt::black);
    QFont font = painter.font();
    font.setPixelSize(28);
    painter.setFont(font);
    painter.drawText(QRect(420, 320, 760, 260), Qt::TextWordWrap,
                     QStringLiteral("Given an array of integers and a target, return the indices of the two numbers "
                                    "that add up to the target."));
    painter.fillRect(QRect(1300, 700, 200, 200), QColor(200, 150, 120)); // a face from the call
    return screen;
}

void saveShot(QWidget *widget, const QString &name)
{
    const QImage image = widget->grab().toImage();
    QVERIFY(!image.isNull());
    QVERIFY(image.save(UiRig::screenshotDir() + QLatin1Char('/') + name + QStringLiteral(".png")));
}

} // namespace

class ScreenQuestionTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { qRegisterMetaType<ScreenshotResult>(); }

    void actionDisabledWithATipUntilASessionRuns()
    {
        UiRig rig;
        QAction *action = rig.window->screenQuestion()->action();
        QCOMPARE(action->text(), QStringLiteral("Answer from screen"));
        QVERIFY(!action->isEnabled());
        QCOMPARE(action->toolTip(), ScreenQuestionFlow::unavailableTip());
        QVERIFY(rig.session.startSession());
        QVERIFY(action->isEnabled());
        QCOMPARE(action->toolTip(), ScreenQuestionFlow::availableTip());
        rig.session.controller->stop();
        QVERIFY(!action->isEnabled());
    }

    // The whole flow with a stand-in capture: the note once, the overlay, a dragged region,
    // the card with its thumbnail.
    void noteOncePickRegionCardWithThumbnail()
    {
        UiRig rig;
        ScreenQuestionFlow &flow = *rig.window->screenQuestion();
        int notes = 0;
        flow.setPrivacyPrompt([&notes](QWidget *) { ++notes; return true; });
        int captures = 0;
        flow.setCapture([&captures](QWidget *, std::function<void(const ScreenshotResult &)> done) {
            ++captures;
            done(ScreenshotResult::captured(codingScreen()));
        });
        QVERIFY(rig.session.startSession());
        rig.window->show();

        flow.action()->trigger();
        QCOMPARE(notes, 1);
        QVERIFY(rig.session.settings.screenPrivacyNoteShown());
        QCOMPARE(captures, 1);
        ScreenRegionPicker *picker = flow.picker();
        QVERIFY(picker);
        QVERIFY(picker->isVisible());
        QVERIFY(!flow.action()->isEnabled()); // one at a time
        picker->resize(800, 500);             // half the picture's size
        saveShot(picker, QStringLiteral("screen-question-picker"));

        // Drag around the question (overlay coordinates are half the picture's).
        QTest::mousePress(picker, Qt::LeftButton, {}, QPoint(200, 150));
        QTest::mouseMove(picker, QPoint(400, 250));
        QTest::mouseMove(picker, QPoint(600, 300));
        QTest::mouseRelease(picker, Qt::LeftButton, {}, QPoint(600, 300));
        QCOMPARE(rig.session.client.images.size(), 1);
        QImage sent;
        QVERIFY(sent.loadFromData(rig.session.client.images.first().first, "JPEG"));
        QCOMPARE(sent.size(), QSize(800, 300)); // the region only, without the face
        QVERIFY(flow.action()->isEnabled());

        const QAPair card = rig.session.controller->pairs().last();
        QCOMPARE(card.question, QStringLiteral("Screen question"));
        QACard view(card, CardFonts{}, false);
        auto *thumbnail = view.findChild<ScreenThumbnail *>();
        QVERIFY(thumbnail);
        QVERIFY(thumbnail->hasPicture());
        QCOMPARE(thumbnail->pixmap().size(), QSize(160, 60));
        rig.session.client.created(QStringLiteral("r1"), true);
        rig.session.client.delta(QStringLiteral("r1"), QStringLiteral("Approach: one pass with a hash map."));
        QTRY_VERIFY(rig.transcript().isVisible());
        saveShot(rig.window.get(), QStringLiteral("screen-question-card"));
        QCOMPARE(rig.session.controller->pairs().last().answer, QStringLiteral("Approach: one pass with a hash map."));
        rig.session.client.done(QStringLiteral("r1"));

        // The note is not shown again; Enter sends the whole screen.
        flow.action()->trigger();
        QCOMPARE(notes, 1);
        QTest::keyClick(flow.picker(), Qt::Key_Return);
        QCOMPARE(rig.session.client.images.size(), 2);
        QVERIFY(sent.loadFromData(rig.session.client.images.last().first, "JPEG"));
        QCOMPARE(sent.size(), QSize(1600, 1000));
    }

    // A picture of two monitors keeps its proportions on one screen; picks map back to it.
    void widePictureIsLetterboxed()
    {
        QImage twoScreens(3200, 1000, QImage::Format_RGB32);
        twoScreens.fill(Qt::gray);
        ScreenRegionPicker picker(twoScreens);
        picker.resize(800, 500);
        QCOMPARE(picker.pictureArea(), QRect(0, 125, 800, 250));
        QSignalSpy picked(&picker, &ScreenRegionPicker::picked);
        QTest::mousePress(&picker, Qt::LeftButton, {}, QPoint(400, 20)); // starts above the picture
        QTest::mouseMove(&picker, QPoint(600, 200));
        QTest::mouseRelease(&picker, Qt::LeftButton, {}, QPoint(600, 200));
        QCOMPARE(picked.size(), 1);
        QCOMPARE(picked.first().first().toRect(), QRect(1600, 0, 800, 300));
    }

    void cancelAndRefusalSendNothing_data()
    {
        QTest::addColumn<int>("how");
        QTest::addColumn<QString>("banner");
        QTest::newRow("Esc in the overlay") << 0 << ScreenshotResult::cancelled().message;
        QTest::newRow("portal refused") << 1 << ScreenshotResult::refused().message;
        QTest::newRow("portal dialog cancelled") << 2 << ScreenshotResult::cancelled().message;
        QTest::newRow("privacy note declined") << 3 << ScreenshotResult::cancelled().message;
        QTest::newRow("a slip is not a pick, then Esc") << 4 << ScreenshotResult::cancelled().message;
    }

    void cancelAndRefusalSendNothing()
    {
        QFETCH(int, how);
        QFETCH(QString, banner);
        UiRig rig;
        ScreenQuestionFlow &flow = *rig.window->screenQuestion();
        flow.setPrivacyPrompt([how](QWidget *) { return how != 3; });
        flow.setCapture([how](QWidget *, std::function<void(const ScreenshotResult &)> done) {
            done(how == 1 ? ScreenshotResult::refused()
                 : how == 2 ? ScreenshotResult::cancelled()
                            : ScreenshotResult::captured(codingScreen()));
        });
        QVERIFY(rig.session.startSession());
        flow.start();
        if (how == 4) {
            QTest::mousePress(flow.picker(), Qt::LeftButton, {}, QPoint(100, 100));
            QTest::mouseRelease(flow.picker(), Qt::LeftButton, {}, QPoint(103, 104));
            QVERIFY(flow.picker());
        }
        if (how == 0 || how == 4)
            QTest::keyClick(flow.picker(), Qt::Key_Escape);
        QVERIFY(!flow.isBusy());
        QVERIFY(rig.session.client.images.isEmpty());
        QVERIFY(rig.session.controller->pairs().isEmpty());
        QCOMPARE(rig.session.controller->banner(), banner);
        QVERIFY(!banner.contains(QLatin1Char('\n')));
        QCOMPARE(rig.session.settings.screenPrivacyNoteShown(), how != 3);
    }

    void answersSettingsPage()
    {
        UiRig rig;
        AppSettings &settings = rig.session.settings;
        AnswersSettingsPage page(settings, *rig.session.controller);
        QVERIFY(page.lengthButton(AnswerStyle::Length::standard)->isChecked());
        QVERIFY(page.structureButton(AnswerStyle::Structure::automatic)->isChecked());
        QCOMPARE(page.answerLanguageCombo()->currentText(), QStringLiteral("Same as the question"));
        QCOMPARE(page.lengthButton(AnswerStyle::Length::brief)->text(), QStringLiteral("Brief — two or three spoken sentences"));
        QCOMPARE(page.lengthButton(AnswerStyle::Length::detailed)->text(), QStringLiteral("Detailed — up to two short paragraphs"));
        QCOMPARE(page.structureButton(AnswerStyle::Structure::star)->text(), QStringLiteral("STAR for behavioural questions"));

        page.lengthButton(AnswerStyle::Length::brief)->click();
        page.structureButton(AnswerStyle::Structure::star)->click();
        QCOMPARE(settings.answerLength(), AnswerStyle::Length::brief);
        QCOMPARE(settings.answerStructure(), AnswerStyle::Structure::star);

        QComboBox *language = page.answerLanguageCombo();
        language->lineEdit()->setText(QStringLiteral("Polish"));
        emit language->lineEdit()->editingFinished();
        QCOMPARE(settings.answerLanguage(), QStringLiteral("Polish"));
        language->lineEdit()->setText(QStringLiteral("Same as the question"));
        emit language->lineEdit()->editingFinished();
        QCOMPARE(settings.answerLanguage(), QString());

        QComboBox *spoken = page.transcriptionLanguageCombo();
        const int german = spoken->findData(QStringLiteral("de"));
        QVERIFY(german > 0);
        spoken->setCurrentIndex(german);
        emit spoken->activated(german);
        QCOMPARE(settings.transcriptionLanguage(), QStringLiteral("de"));
        // The session hands it on at the next Start.
        QVERIFY(rig.session.startSession());
        QCOMPARE(rig.session.client.starts.last().transcriptionLanguage, QStringLiteral("de"));
        QVERIFY(rig.session.client.starts.last().instructions.endsWith(QStringLiteral("Situation, Task, Action, Result.")));

        // Changed elsewhere: the page follows.
        settings.setAnswerLength(AnswerStyle::Length::detailed);
        QVERIFY(page.lengthButton(AnswerStyle::Length::detailed)->isChecked());

        // The review's target band: one end moved past the other takes it along.
        QCOMPARE(page.targetMinBox()->value(), 60);
        QCOMPARE(page.targetMaxBox()->value(), 120);
        page.targetMinBox()->setValue(90);
        emit page.targetMinBox()->editingFinished();
        QCOMPARE(settings.answerTargetMinSeconds(), 90);
        page.targetMinBox()->setValue(150);
        emit page.targetMinBox()->editingFinished();
        QCOMPARE(settings.answerTargetMinSeconds(), 150);
        QCOMPARE(settings.answerTargetMaxSeconds(), 155);
        page.targetMaxBox()->setValue(30);
        emit page.targetMaxBox()->editingFinished();
        QCOMPARE(settings.answerTargetMinSeconds(), 29);
        QCOMPARE(settings.answerTargetMaxSeconds(), 30);
        settings.setAnswerTarget(60, 120);
        QCOMPARE(page.targetMaxBox()->value(), 120);
        page.resize(520, 640);
        page.show();
        saveShot(&page, QStringLiteral("settings-answers"));
    }
};

QTEST_MAIN(ScreenQuestionTest)
#include "tst_screen_question.moc"
