#pragma once

#include <QHash>
#include <QObject>
#include <QString>

#include <cstdio>
#include <optional>

class SessionController;
struct QAPair;

// Runs one session without a window: starts it, prints each card to standard output as
// Markdown once its answer is complete (again when an extended question gets its new
// answer, and at the end with the user's own transcribed answer), prints banners to
// standard error, and stops cleanly on request or after a set
// time so that the transcript, events log and recording are saved.
class HeadlessRunner : public QObject
{
    Q_OBJECT
public:
    HeadlessRunner(SessionController &controller, std::FILE *out, std::FILE *err,
                   std::optional<double> stopAfterSeconds, QObject *parent = nullptr);

    // Starts the session. finished() follows once it has ended.
    void run();
    // Stops the session and saves its records (Ctrl-C, SIGTERM, --stop-after).
    void requestStop();

    // The Markdown block printed for one card, with or without the user's own answer.
    static QString cardBlock(const QAPair &pair, bool withMyAnswer);

signals:
    // 0 after a clean stop; 1 when the session could not start or ended by itself.
    void finished(int exitCode);

private:
    void considerCard(int index);
    // Prints the card unless exactly this text was printed for it already.
    void printIfChanged(const QAPair &pair, bool withMyAnswer);
    void printBanner();
    void printLinks();
    void writeError(const QString &text);
    void sessionActiveChanged();
    void finish(int exitCode);

    SessionController &m_controller;
    std::FILE *m_out;
    std::FILE *m_err;
    std::optional<double> m_stopAfterSeconds;
    QHash<QString, QString> m_printed;   // card id -> the block last printed for it
    QString m_lastBanner;
    bool m_started = false;
    bool m_stopping = false;
    bool m_finished = false;
};
