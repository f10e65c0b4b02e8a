#include "audio/MonoRingBuffer.h"

#include <QtTest>

#include <numeric>
#include <thread>

class TestMonoRingBuffer : public QObject
{
    Q_OBJECT

private slots:
    void capacityIsTruncatedSecondsTimesRate()
    {
        QCOMPARE(MonoRingBuffer(5.0, 48000).capacity(), 240000);
        QCOMPARE(MonoRingBuffer(0.1, 44100).capacity(), 4410);
    }

    void popPadsWithSilence()
    {
        MonoRingBuffer b(5.0, 48000);
        QCOMPARE(b.pop(480), std::vector<float>(480, 0.0f));
        QVERIFY(b.pop(0).empty());

        std::vector<float> hundred(100);
        std::iota(hundred.begin(), hundred.end(), 1.0f);
        b.push(hundred.data(), 100);
        QVERIFY(b.pop(0).empty());   // takes nothing
        const auto out = b.pop(480);
        QCOMPARE(out.size(), size_t(480));
        QVERIFY(std::equal(hundred.begin(), hundred.end(), out.begin()));
        QVERIFY(std::all_of(out.begin() + 100, out.end(), [](float v) { return v == 0.0f; }));
        QCOMPARE(b.available(), 0);
    }

    void keepsTheNewestWhenFull()
    {
        MonoRingBuffer b(5.0, 48000);
        std::vector<float> in(300000);
        std::iota(in.begin(), in.end(), 0.0f);
        b.push(in.data(), int(in.size()));
        QCOMPARE(b.available(), 240000);
        const auto out = b.pop(240000);
        QCOMPARE(out.front(), 60000.0f);
        QCOMPARE(out.back(), 299999.0f);
    }

    void fifoOrderAcrossPushesAndClear()
    {
        MonoRingBuffer b(1.0, 1000);
        const float a[] = {1, 2, 3};
        const float c[] = {4, 5};
        b.push(a, 3);
        b.push(c, 2);
        QCOMPARE(b.pop(4), (std::vector<float>{1, 2, 3, 4}));
        b.push(a, 3);
        QCOMPARE(b.discard(2), 2);
        float out[3];
        QCOMPARE(b.popInto(out, 3), 2);   // 5, 1, 2, 3 less the two oldest
        QCOMPARE(out[0], 2.0f);
        QCOMPARE(out[1], 3.0f);
        QCOMPARE(out[2], 0.0f);
        QCOMPARE(b.discard(4), 0);
        b.push(a, 3);
        b.clear();
        QCOMPARE(b.pop(2), (std::vector<float>{0, 0}));
    }

    // One producer and one consumer, as the tap and microphone threads use it: every sample
    // pushed comes out once, in order, and nothing is invented while data is queued.
    void producerAndConsumerThreads()
    {
        MonoRingBuffer b(5.0, 48000);
        constexpr int blocks = 400;   // 192000 samples: below the cap, so nothing is dropped
        constexpr int block = 480;
        std::thread producer([&] {
            std::vector<float> chunk(block);
            for (int k = 0; k < blocks; ++k) {
                for (int i = 0; i < block; ++i)
                    chunk[size_t(i)] = float(k * block + i + 1);
                b.push(chunk.data(), block);
            }
        });
        std::vector<float> got;
        got.reserve(blocks * block);
        while (int(got.size()) < blocks * block) {
            const int n = b.available();
            if (n == 0) {
                std::this_thread::yield();
                continue;
            }
            const auto out = b.pop(std::min(n, 1024));
            got.insert(got.end(), out.begin(), out.end());
        }
        producer.join();
        for (size_t i = 0; i < got.size(); ++i)
            QCOMPARE(got[i], float(i + 1));
    }
};

QTEST_GUILESS_MAIN(TestMonoRingBuffer)
#include "tst_audio_ringbuffer.moc"
