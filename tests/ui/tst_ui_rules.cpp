// The display rules of the window: formats, colours, labels and fonts.
#include "session/QAPair.h"
#include "ui/CardFonts.h"
#include "ui/CardText.h"
#include "ui/Colors.h"
#include "ui/ControlBar.h"
#include "ui/DisplayFormat.h"
#include "ui/IconLabel.h"
#include "ui/Icons.h"
#include "ui/LevelMeter.h"
#include "ui/MeterBallistics.h"
#include "ui/QACard.h"
#include "ui/StatusPill.h"
#include "ui/TextSize.h"

#include <QApplication>
#include <QImage>
#include <QTest>

#include <cmath>
#include <functional>

class UiRulesTest : public QObject
{
    Q_OBJECT

private slots:
    void clockAndShortDurations()
    {
        QCOMPARE(DisplayFormat::clock(0), QStringLiteral("00:00"));
        QCOMPARE(DisplayFormat::clock(59 * 60 + 59), QStringLiteral("59:59"));
        QCOMPARE(DisplayFormat::clock(59 * 60 + 59.99), QStringLiteral("59:59"));
        QCOMPARE(DisplayFormat::clock(3600), QStringLiteral("1:00:00"));
        QCOMPARE(DisplayFormat::clock(10 * 3600 + 61), QStringLiteral("10:01:01"));
        QCOMPARE(DisplayFormat::clock(-3), QStringLiteral("00:00"));
        QCOMPARE(DisplayFormat::shortDuration(42.7), QStringLiteral("42s"));
        QCOMPARE(DisplayFormat::shortDuration(59.99), QStringLiteral("59s"));
        QCOMPARE(DisplayFormat::shortDuration(60), QStringLiteral("1:00"));
        QCOMPARE(DisplayFormat::shortDuration(125), QStringLiteral("2:05"));
    }

    void answerTimerAndMeterColours()
    {
        QCOMPARE(Colors::answerTimer(0), Colors::green());
        QCOMPARE(Colors::answerTimer(44.9), Colors::green());
        QCOMPARE(Colors::answerTimer(45.0), Colors::orange());
        QCOMPARE(Colors::answerTimer(89.9), Colors::orange());
        QCOMPARE(Colors::answerTimer(90.0), Colors::red());

        double now = 0;
        LevelMeter meter(QStringLiteral("Mtg"));
        meter.setClock([&now] { return now; });
        meter.setLevel(0.9f);
        QCOMPARE(meter.fillColor(), Colors::green());
        meter.setLevel(0.91f);
        QCOMPARE(meter.fillColor(), Colors::red());
        meter.setLevel(1.7f);
        QCOMPARE(meter.filledWidth(), double(LevelMeter::kBarWidth));
        // A quieter level is reached smoothly, not at once; the peak mark stays a moment.
        meter.setLevel(-0.5f);
        QCOMPARE(meter.filledWidth(), double(LevelMeter::kBarWidth));
        now += 0.1;
        meter.tick();
        QVERIFY(meter.shownLevel() > 0.3 && meter.shownLevel() < 0.7);
        QCOMPARE(meter.peakLevel(), 1.0);
        now += 2.0;
        meter.tick();
        QCOMPARE(meter.filledWidth(), 0.0);
        meter.setLevel(0.5f);
        QCOMPARE(meter.filledWidth(), LevelMeter::kBarWidth * 0.5);
    }

    void iconsAreOneDrawnSetThatScales()
    {
        // Every icon has a drawing of its own (no style icon of another look stands in), at
        // any size.
        for (int i = 0; i <= int(Icons::Id::more); ++i) {
            const QIcon icon = Icons::drawnIcon(Icons::Id(i));
            for (int side : {12, 48}) {
                const QImage image = icon.pixmap(side, side).toImage();
                QCOMPARE(image.width(), side);
                int inked = 0;
                for (int y = 0; y < side; ++y) {
                    for (int x = 0; x < side; ++x)
                        inked += qAlpha(image.pixel(x, y)) > 0 ? 1 : 0;
                }
                QVERIFY2(inked > side, qPrintable(Icons::themeName(Icons::Id(i))));
            }
        }
        // "Save .wav" is red only while on.
        const QIcon record = Icons::drawnIcon(Icons::Id::record);
        QVERIFY(record.pixmap(16, 16, QIcon::Normal, QIcon::On).toImage()
                != record.pixmap(16, 16, QIcon::Normal, QIcon::Off).toImage());
        // An icon beside text grows with the text.
        IconLabel small(Icons::Id::person);
        IconLabel large(Icons::Id::person);
        QFont f = small.font();
        f.setPointSizeF(9);
        small.setFont(f);
        f.setPointSizeF(32);
        large.setFont(f);
        QVERIFY(small.iconSize() >= 12);
        QVERIFY(large.iconSize() >= 3 * small.iconSize());
        QCOMPARE(large.sizeHint(), QSize(large.iconSize(), large.iconSize()));
    }

    void contrastArithmetic()
    {
        QCOMPARE(Colors::contrast(Qt::black, Qt::white), 21.0);
        QCOMPARE(Colors::contrast(Qt::white, Qt::white), 1.0);
        QVERIFY(qAbs(Colors::contrast(QColor(0x77, 0x77, 0x77), Qt::white) - 4.48) < 0.01);
        QVERIFY(qAbs(Colors::over(Colors::withAlpha(Qt::black, 0.5), Qt::white).red() - 128) <= 1);
    }

    void meterBallistics()
    {
        MeterBallistics m;
        // Rises at once.
        m.step(0.8, 0.05);
        QCOMPARE(m.level(), 0.8);
        QCOMPARE(m.peak(), 0.8);
        // Levels flickering between loud and quiet at 20 Hz keep the bar high: no flicker.
        for (int i = 0; i < 10; ++i) {
            m.step(i % 2 ? 0.8 : 0.1, 0.05);
            QVERIFY2(m.level() > 0.45, qPrintable(QString::number(m.level())));
        }
        // The peak holds for a second, then falls, never below the bar.
        m.step(0.0, 0.5);
        QCOMPARE(m.peak(), 0.8);
        m.step(0.0, 0.6);
        QVERIFY(m.peak() < 0.8);
        QVERIFY(m.peak() >= m.level());
        m.advance(3.0);
        QCOMPARE(m.level(), 0.0);
        QCOMPARE(m.peak(), 0.0);
        QVERIFY(m.isAtRest());
        // Out of range and NaN inputs are clamped.
        m.step(7.0, 0.01);
        QCOMPARE(m.level(), 1.0);
        m.step(std::nan(""), 10);
        QCOMPARE(m.level(), 0.0);
    }

    void statusPillPerStatus()
    {
        StatusPill pill;
        const QList<std::tuple<RealtimeStatus, QString, QColor>> cases = {
            {RealtimeStatus::idle(), QStringLiteral("Idle"), Colors::grey()},
            {RealtimeStatus::connecting(), QStringLiteral("Connecting…"), Colors::orange()},
            {RealtimeStatus::connected(), QStringLiteral("Live"), Colors::green()},
            {RealtimeStatus::reconnecting(), QStringLiteral("Reconnecting…"), Colors::orange()},
            {RealtimeStatus::failed(QStringLiteral("Invalid API key")), QStringLiteral("Error"), Colors::red()},
        };
        for (const auto &[status, label, colour] : cases) {
            pill.setStatus(status);
            QCOMPARE(pill.text(), label);
            QCOMPARE(pill.dotColor(), colour);
        }
        QCOMPARE(pill.toolTip(), QStringLiteral("Invalid API key"));
    }

    void textSizeStaysWithinTenToThirtySix()
    {
        QCOMPARE(TextSize::smaller(10), 10.0);
        QCOMPARE(TextSize::smaller(14), 13.0);
        QCOMPARE(TextSize::bigger(36), 36.0);
        QCOMPARE(TextSize::bigger(35), 36.0);
        QCOMPARE(TextSize::bigger(35.5), 36.0);
        QCOMPARE(TextSize::smaller(10.5), 10.0);
        // A stored size outside the range comes back into it on the first step.
        QCOMPARE(TextSize::bigger(50), 36.0);
        QCOMPARE(TextSize::smaller(4), 10.0);
    }

    void cardFonts()
    {
        const auto make = [](double size, QFont::Weight weight) {
            QFont f;
            f.setPointSizeF(size);
            f.setWeight(weight);
            return f;
        };
        const CardFonts at14 = CardFonts::make(14, make);
        QCOMPARE(at14.question.pointSizeF(), 15.0);
        QCOMPARE(at14.question.weight(), QFont::DemiBold);
        QCOMPARE(at14.answer.pointSizeF(), 14.0);
        QCOMPARE(at14.answer.weight(), QFont::Normal);
        QCOMPARE(at14.meta.pointSizeF(), 10.0);
        // The meta line never drops below 9 points.
        QCOMPARE(CardFonts::make(10, make).meta.pointSizeF(), 9.0);
        QCOMPARE(CardFonts::make(12, make).meta.pointSizeF(), 9.0);
        QCOMPARE(CardFonts::make(13, make).meta.pointSizeF(), 9.0);
    }

    void controlBarLabels()
    {
        QCOMPARE(ControlBar::contextButtonLabel(0), QStringLiteral("Context"));
        QCOMPARE(ControlBar::contextButtonLabel(3), QStringLiteral("Context (3)"));
        QCOMPARE(ControlBar::jobButtonLabel(QString()), QStringLiteral("Job"));
        QCOMPARE(ControlBar::jobButtonLabel(QStringLiteral("  \t")), QStringLiteral("Job"));
        QCOMPARE(ControlBar::jobButtonLabel(QStringLiteral("Staff Engineer")), QStringLiteral("Staff Engineer"));
        const QString longRole = ControlBar::jobButtonLabel(QStringLiteral("Principal Distributed Systems Engineer, Payments"));
        QVERIFY(longRole.endsWith(QStringLiteral("…")));
        QVERIFY(longRole.size() <= 22);

        using S = AppSettings::StreamSource;
        QCOMPARE(ControlBar::micMeterLabel(S::meetingOnly), QStringLiteral("Mic\u2298"));
        QCOMPARE(ControlBar::micMeterHelp(S::meetingOnly),
                 QStringLiteral("Mic is monitored and recorded locally, but not sent to the model"));
        QCOMPARE(ControlBar::micMeterLabel(S::micOnly), QStringLiteral("Mic"));
        QCOMPARE(ControlBar::micMeterLabel(S::both), QStringLiteral("Mic"));
        QCOMPARE(ControlBar::micMeterHelp(S::both), QStringLiteral("Mic audio is streamed to the model"));
    }

    void cardText()
    {
        QAPair pair;
        const auto shown = [&pair](bool live = true, bool open = false) { return CardText::of(pair, live, open); };
        QCOMPARE(shown().thinking, QStringLiteral("thinking"));
        QVERIFY(shown().answerHeaderShown && !shown().myAnswerRowShown);
        // No progress while the question is still being heard, nor once the answer is not
        // coming (finished empty, or the session stopped first); re-answering brings it back.
        pair.questionInProgress = true;
        QCOMPARE(shown().thinking, QString());
        pair.questionInProgress = false;
        QVERIFY(shown(false).thinking.isEmpty() && !shown(false).answerHeaderShown);
        pair.isComplete = true;
        QVERIFY(shown().thinking.isEmpty() && !shown().answerHeaderShown);
        pair.isComplete = false;
        pair.wasExtended = true;
        QCOMPARE(shown().thinking, QStringLiteral("re-answering the full question…"));

        QCOMPARE(shown().myAnswerLabelText, QStringLiteral("My answer"));
        pair.myAnswerInProgress = true;
        QVERIFY(shown().myAnswerRowShown && !shown(false).myAnswerRowShown);
        QCOMPARE(shown().myAnswerLabelText, QStringLiteral("My answer (recording…)"));
        QCOMPARE(shown(false).myAnswerLabelText, QStringLiteral("My answer"));
        QCOMPARE(shown().wordCountText, QString()); // recording before any words
        pair.myAnswer = QStringLiteral("  I led\tthe ledger\n migration  ");
        QCOMPARE(shown().wordCountText, QStringLiteral("5 words"));
        // Opened, the answer shows instead of its count.
        QVERIFY(!shown().myAnswerTextShown && shown(true, true).myAnswerTextShown);
        QCOMPARE(shown(true, true).wordCountText, QString());
        pair.myAnswer = QStringLiteral(" \n ");
        QCOMPARE(shown().wordCountText, QString());
    }

    // Whatever changes, the card shows what CardText says for its pair.
    void cardWidgetFollowsItsPair()
    {
        QAPair pair;
        pair.id = QStringLiteral("A");
        pair.timestamp = QStringLiteral("14:05:09");
        pair.question = QStringLiteral("Why this role?");
        QACard card(pair, CardFonts{QFont(), QFont(), QFont()}, false);
        bool live = true;
        const auto matches = [&card, &live] {
            card.applyPendingText();
            const CardText want = CardText::of(card.pair(), live, card.isMyAnswerShown());
            const bool row = want.myAnswerRowShown;
            return card.questionText() == want.question && card.answerText() == want.answer
                   && card.isAnswerHeaderShown() == want.answerHeaderShown && card.thinkingText() == want.thinking
                   && card.noteText() == want.note && card.isUpdatedBadgeShown() == want.updatedBadgeShown
                   && card.isMyAnswerRowShown() == row
                   && card.myAnswerLabelText() == (row ? want.myAnswerLabelText : QString())
                   && card.wordCountText() == (row ? want.wordCountText : QString())
                   && card.isMyAnswerTextShown() == want.myAnswerTextShown;
        };
        const std::function<void()> changes[] = {
            [&] { pair.answer = QStringLiteral("Because"); },
            [&] { pair.answer += QStringLiteral(" payments"); }, // grows while streaming
            [&] { pair.isComplete = true; pair.answerNote = QStringLiteral("answer cut short"); },
            [&] { pair.wasExtended = true; pair.isComplete = false; pair.answer.clear(); }, // re-answered
            [&] { pair.myAnswer = QStringLiteral("one two three"); },
            [&] { card.setMyAnswerShown(true); },
            [&] { card.setSessionLive(live = false); }, // stopped before the answer came
            [&] { card.setSessionLive(live = true); pair.questionInProgress = pair.myAnswerInProgress = true; },
            [&] { pair.questionInProgress = false; pair.isComplete = true; },
        };
        QVERIFY(matches());
        for (std::size_t i = 0; i < std::size(changes); ++i) {
            changes[i]();
            card.setPair(pair);
            QVERIFY2(matches(), qPrintable(QStringLiteral("after change %1").arg(i)));
        }
    }
};

QTEST_MAIN(UiRulesTest)
#include "tst_ui_rules.moc"
