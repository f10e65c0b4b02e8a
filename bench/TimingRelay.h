#pragma once

#include <QHash>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QUrl>

#include <cstdint>

class QWebSocket;
class QWebSocketServer;

// A WebSocket relay between the app and the realtime simulator that notes, on the monotonic
// clock, when the simulator sent what the latency figures need: each question's transcript,
// the first text delta of each response, and each "session.updated". Everything else passes
// through untouched, so the app and the simulator see the same conversation as without it.
// It lives on a thread of its own (see start()), so the benchmark's blocking steps never delay
// a message; the notes are read from any thread.
class TimingRelay : public QObject
{
    Q_OBJECT
public:
    struct Stamp
    {
        std::int64_t ns = 0;   // CLOCK_MONOTONIC
        QString text;          // the transcript, or the response id
    };

    explicit TimingRelay(const QUrl &upstream);
    ~TimingRelay() override;

    // Listens on 127.0.0.1 (call on the relay's thread); the address for KQ_REALTIME_URL.
    bool listen();
    QUrl url() const;

    QList<Stamp> transcripts() const;
    QList<Stamp> firstDeltas() const;
    QList<std::int64_t> configured() const;

    static std::int64_t monotonicNs();

private:
    void onNewConnection();
    void fromSimulator(const QString &message);

    QUrl m_upstream;
    QWebSocketServer *m_server = nullptr;
    mutable QMutex m_mutex;
    QUrl m_url;
    QList<Stamp> m_transcripts;
    QList<Stamp> m_firstDeltas;
    QHash<QString, bool> m_seenResponses;
    QList<std::int64_t> m_configured;
};
