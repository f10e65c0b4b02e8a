// With 500 cards in the window, how long applying one answer delta to the last card takes
// (the card update alone, and with the layout and paint it causes), for typical and long
// answers, and what the window costs in memory; then a 24,000-character answer streamed at
// 1,000 deltas a second: how long after the last delta the card is fully painted, and the
// longest the event loop went without processing an event meanwhile.
#include "session/QAPair.h"
#include "ui/CardFonts.h"
#include "ui/TranscriptView.h"

#include "ui/QACard.h"

#include <QApplication>
#include <QTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QScrollArea>
#include <QScrollBar>

#include <algorithm>
#include <cstdio>

namespace {
long residentKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    }
    return -1;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double percentile(std::vector<double> values, double p)
{
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(p * double(values.size())))];
}

// Watches every event the application processes: the longest stretch between two, and
// when a widget inside `card` was last painted.
class EventWatch : public QObject
{
public:
    explicit EventWatch(const QElapsedTimer &clock) : m_clock(clock) {}

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        const double now = double(m_clock.nsecsElapsed()) / 1e6;
        if (measuring) {
            if (last >= 0)
                largestGap = std::max(largestGap, now - last);
            last = now;
        }
        if (event->type() == QEvent::Paint && card) {
            for (QObject *o = watched; o; o = o->parent()) {
                if (o == card) {
                    lastCardPaint = now;
                    break;
                }
            }
        }
        return false;
    }

    bool measuring = false;
    double last = -1;
    double largestGap = 0;
    double lastCardPaint = -1;
    QObject *card = nullptr;

private:
    const QElapsedTimer &m_clock;
};
} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    constexpr int kCards = 500;

    const long before = residentKiB();
    QList<QAPair> pairs;
    TranscriptView view;
    view.setCardFonts(CardFonts::make(14, [](double size, QFont::Weight weight) {
        QFont f;
        f.setPointSizeF(size);
        f.setWeight(weight);
        return f;
    }));
    view.setSource(&pairs);
    view.resize(560, 680);
    view.show();
    QCoreApplication::processEvents();

    QElapsedTimer fill;
    fill.start();
    for (int i = 0; i < kCards; ++i) {
        QAPair pair;
        pair.id = QStringLiteral("P%1").arg(i);
        pair.timestamp = QStringLiteral("14:05:09");
        pair.question = QStringLiteral("Question %1: how would you design a rate limiter for a public API?").arg(i);
        pair.answer = QStringLiteral("Token bucket per key in Redis, refilled by a Lua script so take and refill are "
                                     "atomic; 2,000 requests a minute with a burst of 200 and a 429 with Retry-After.");
        pair.isComplete = i + 1 < kCards;
        pairs.append(pair);
        view.pairInserted(i);
    }
    QCoreApplication::processEvents();
    const double fillMs = double(fill.nsecsElapsed()) / 1e6;
    const long after = residentKiB();

    // Streams one answer into a new last card in deltas of about a dozen characters, as the
    // service sends them, and times each delta.
    const auto stream = [&](int deltas, std::vector<double> &update, std::vector<double> &withLayout) {
        QAPair pair;
        pair.id = QStringLiteral("S%1").arg(pairs.size());
        pair.timestamp = QStringLiteral("14:30:00");
        pair.question = QStringLiteral("What would your first ninety days here look like?");
        pairs.append(pair);
        view.pairInserted(int(pairs.size()) - 1);
        QCoreApplication::processEvents();
        QElapsedTimer timer;
        for (int i = 0; i < deltas; ++i) {
            timer.start();
            pairs.last().answer += QStringLiteral("pair with on");
            view.pairChanged(int(pairs.size()) - 1);
            update.push_back(double(timer.nsecsElapsed()) / 1e6);
            // As if every delta got a frame of its own (the worst case; faster deltas share one).
            view.flushPendingUpdates();
            QCoreApplication::processEvents();
            withLayout.push_back(double(timer.nsecsElapsed()) / 1e6);
        }
        pairs.last().isComplete = true;
        view.pairChanged(int(pairs.size()) - 1);
        QCoreApplication::processEvents();
    };

    std::vector<double> typicalUpdate, typicalLayout, longUpdate, longLayout;
    for (int answer = 0; answer < 10; ++answer)
        stream(60, typicalUpdate, typicalLayout);   // about 720 characters, a typical short answer
    stream(250, longUpdate, longLayout);            // up to 3,000 characters

    // A 24,000-character answer at 1,000 deltas a second (24 characters each, with a
    // paragraph break about every 600 characters, as answers have) into the last card.
    constexpr int kFastDeltas = 1000;
    double lastDeltaToPaintMs = -1;
    double largestGapMs = 0;
    double streamMs = 0;
    bool complete = false;
    {
        QAPair pair;
        pair.id = QStringLiteral("FAST");
        pair.timestamp = QStringLiteral("14:45:00");
        pair.question = QStringLiteral("Walk me through the whole migration, end to end.");
        pairs.append(pair);
        view.pairInserted(int(pairs.size()) - 1);
        QCoreApplication::processEvents();
        const int index = int(pairs.size()) - 1;
        QElapsedTimer clock;
        clock.start();
        EventWatch watch(clock);
        watch.card = view.card(index);
        app.installEventFilter(&watch);
        QString full;
        int sent = 0;
        double lastDeltaAt = -1;
        QTimer feeder;
        feeder.setTimerType(Qt::PreciseTimer);
        feeder.setInterval(1);
        QObject::connect(&feeder, &QTimer::timeout, [&] {
            // Every delta that is due by now, so the rate holds even when the loop is late.
            const int due = std::min(kFastDeltas, int(clock.nsecsElapsed() / 1000000) + 1);
            while (sent < due) {
                QString delta = QStringLiteral("ledger rows moved, then ");
                if (sent % 25 == 24)
                    delta = QStringLiteral("checked it twice.\n\nThen ");
                full += delta;
                pairs[index].answer += delta;
                view.pairChanged(index);
                ++sent;
            }
            if (sent == kFastDeltas) {
                feeder.stop();
                lastDeltaAt = double(clock.nsecsElapsed()) / 1e6;
            }
        });
        watch.measuring = true;
        feeder.start();
        QElapsedTimer limit;
        limit.start();
        while (limit.elapsed() < 20000) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            if (lastDeltaAt >= 0 && !view.hasPendingUpdates() && watch.lastCardPaint > lastDeltaAt
                && view.card(index)->answerText() == full)
                break;
        }
        watch.measuring = false;
        app.removeEventFilter(&watch);
        streamMs = lastDeltaAt;
        lastDeltaToPaintMs = watch.lastCardPaint > lastDeltaAt ? watch.lastCardPaint - lastDeltaAt : -1;
        largestGapMs = watch.largestGap;
        complete = view.card(index)->answerText() == full && full.size() == 24000;
        pairs[index].isComplete = true;
        view.pairChanged(index);
        QCoreApplication::processEvents();
    }

    std::printf("bench_ui_transcript: %d cards in the view, answer deltas of 12 characters to the last card\n",
                kCards);
    std::printf("  typical answer (to ~720 chars), %zu deltas:\n", typicalUpdate.size());
    std::printf("    card update:           median %.3f ms, p90 %.3f ms\n", median(typicalUpdate),
                percentile(typicalUpdate, 0.9));
    std::printf("    + layout/paint, a frame per delta: median %.3f ms, p90 %.3f ms\n", median(typicalLayout),
                percentile(typicalLayout, 0.9));
    std::printf("  long answer (to 3,000 chars), %zu deltas:\n", longUpdate.size());
    std::printf("    card update:           median %.3f ms, p90 %.3f ms\n", median(longUpdate),
                percentile(longUpdate, 0.9));
    std::printf("    + layout/paint, a frame per delta: median %.3f ms, p90 %.3f ms\n", median(longLayout),
                percentile(longLayout, 0.9));
    std::printf("  24,000-char answer at 1,000 deltas/s into the last of %d cards (stream took %.0f ms):\n", int(pairs.size()),
                streamMs);
    std::printf("    last delta -> card fully painted: %.1f ms (goal < 100)%s\n", lastDeltaToPaintMs,
                complete ? "" : "  INCOMPLETE");
    std::printf("    largest gap between two processed events during the stream: %.1f ms (goal < 50)\n",
                largestGapMs);
    std::printf("  cards made: %d for %lld cards (streaming rebuilt nothing)\n", view.cardsCreated(),
                static_cast<long long>(pairs.size()));
    std::printf("  filling %d cards: %.1f ms\n", kCards, fillMs);
    std::printf("  memory: %ld KiB resident before, %ld KiB with %d cards (+%ld KiB, %.1f KiB per card)\n", before,
                after, kCards, after - before, double(after - before) / kCards);
    std::printf("  following the bottom: %s\n",
                view.scrollArea()->verticalScrollBar()->value() == view.scrollArea()->verticalScrollBar()->maximum()
                    ? "yes"
                    : "NO");
    return 0;
}
