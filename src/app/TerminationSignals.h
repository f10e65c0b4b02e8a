#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGINT and SIGTERM into a Qt signal on the GUI thread, so a session can be stopped
// cleanly from the terminal. The handler only writes a byte to a socket pair.
class TerminationSignals : public QObject
{
    Q_OBJECT
public:
    explicit TerminationSignals(QObject *parent = nullptr);
    ~TerminationSignals() override;

signals:
    void terminationRequested();

private:
    static void handle(int signal);

    QSocketNotifier *m_notifier = nullptr;
};
