#pragma once

#include <QFile>
#include <QObject>
#include <QSocketNotifier>
#include <QTextStream>

class RealtimeSimulator;
struct SimRecord;

// The text control interface of `ketterbloom-sim`: one command per line on standard input,
// one reply line per command on standard output. See tools/README.md.
class SimControl : public QObject
{
    Q_OBJECT
public:
    SimControl(RealtimeSimulator *simulator, QObject *parent = nullptr);

    // Also appends every received message as one JSON line to `path`.
    bool setRecordsFile(const QString &path);
    void setEcho(bool echo) { m_echo = echo; }
    void listenOnStdin();
    // Runs one command line; returns the reply.
    QString execute(const QString &line);

private:
    void readStdin();
    void onRecord(const SimRecord &record);
    void reply(const QString &text);

    RealtimeSimulator *m_simulator;
    QSocketNotifier *m_notifier = nullptr;
    QFile m_records;
    QTextStream m_out;
    QByteArray m_buffer;
    bool m_echo = false;
};
