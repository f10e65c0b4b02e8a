// With 500 cards in the window, how long applying one answer delta to the last card takes
// (the card update alone, and with the layout pass it causes), and what the window costs in
// memory.
#include "session/QAPair.h"
#include "ui/CardFonts.h"
#include "ui/TranscriptView.h"

#include <QApplication>
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
} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    constexpr int kCards = 500;
    constexpr int kDeltas = 300;

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

    std::vector<double> update;
    std::vector<double> withLayout;
    QElapsedTimer timer;
    for (int i = 0; i < kDeltas; ++i) {
        timer.start();
        pairs.last().answer += QStringLiteral(" more words");
        view.pairChanged(kCards - 1);
        update.push_back(double(timer.nsecsElapsed()) / 1e6);
        QCoreApplication::processEvents();
        withLayout.push_back(double(timer.nsecsElapsed()) / 1e6);
    }

    std::printf("bench_ui_transcript: %d cards, %d deltas to the last card\n", kCards, kDeltas);
    std::printf("  card update:            median %.3f ms, p90 %.3f ms\n", median(update), percentile(update, 0.9));
    std::printf("  update + layout/paint:  median %.3f ms, p90 %.3f ms\n", median(withLayout),
                percentile(withLayout, 0.9));
    std::printf("  cards made: %d (a rebuild would make %d more)\n", view.cardsCreated(), kCards);
    std::printf("  filling 500 cards: %.1f ms\n", fillMs);
    std::printf("  memory: %ld KiB resident before, %ld KiB with 500 cards (+%ld KiB, %.1f KiB per card)\n", before,
                after, after - before, double(after - before) / kCards);
    std::printf("  following the bottom: %s\n",
                view.scrollArea()->verticalScrollBar()->value() == view.scrollArea()->verticalScrollBar()->maximum()
                    ? "yes"
                    : "NO");
    return 0;
}
