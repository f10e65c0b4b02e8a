// The lock-free queue between the audio thread and the transcriber's worker.
#include "speech/SampleQueue.h"

#include <QTest>

#include <thread>
#include <vector>

class TestSampleQueue : public QObject
{
    Q_OBJECT

private slots:
    void wrapsAndTruncates()
    {
        SampleQueue q(6); // rounded up to 8
        const float a[5] = {1, 2, 3, 4, 5};
        float out[8] = {};
        QCOMPARE(q.push(a, 5), std::size_t(5));
        QCOMPARE(q.pop(out, 3), std::size_t(3));
        QCOMPARE(q.push(a, 5), std::size_t(5)); // crosses the end of the storage
        QCOMPARE(q.push(a, 5), std::size_t(1)); // full: cut short, never waits
        QCOMPARE(q.size(), std::size_t(8));
        QCOMPARE(q.pop(out, 8), std::size_t(8));
        QCOMPARE(std::vector<float>(out, out + 8), (std::vector<float>{4, 5, 1, 2, 3, 4, 5, 1}));
        q.push(a, 2);
        q.clear();
        QCOMPARE(q.pop(out, 8), std::size_t(0));

        // Dropping up to a position taken earlier keeps what came after it.
        q.push(a, 3);
        const std::size_t mark = q.writePosition();
        q.push(a + 3, 2);
        q.dropUntil(mark);
        QCOMPARE(q.pop(out, 8), std::size_t(2));
        QCOMPARE(out[0], 4.0f);
        q.dropUntil(mark); // already consumed past it: nothing happens
        QCOMPARE(q.size(), std::size_t(0));
    }

    // A producer and a consumer on two threads: every sample arrives once, in order.
    void producerAndConsumerThreads()
    {
        SampleQueue q(1024);
        constexpr int total = 2'000'000;
        std::thread producer([&q] {
            std::vector<float> block(300);
            int next = 0;
            while (next < total) {
                const int n = std::min<int>(static_cast<int>(block.size()), total - next);
                for (int i = 0; i < n; ++i)
                    block[static_cast<std::size_t>(i)] = static_cast<float>((next + i) % 4096);
                next += static_cast<int>(q.push(block.data(), static_cast<std::size_t>(n)));
                if (next < total)
                    std::this_thread::yield();
            }
        });
        std::vector<float> out(512);
        int expected = 0;
        bool inOrder = true;
        while (expected < total) {
            const std::size_t n = q.pop(out.data(), out.size());
            for (std::size_t i = 0; i < n; ++i, ++expected)
                inOrder = inOrder && out[i] == static_cast<float>(expected % 4096);
            if (n == 0)
                std::this_thread::yield();
        }
        producer.join();
        QVERIFY(inOrder);
        QCOMPARE(q.size(), std::size_t(0));
    }
};

QTEST_GUILESS_MAIN(TestSampleQueue)
#include "tst_SampleQueue.moc"
