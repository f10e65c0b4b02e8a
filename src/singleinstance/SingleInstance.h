#pragma once

#include "common/Result.h"

#include <QLockFile>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>

class QJsonObject;
class QLocalServer;
class QLocalSocket;

// One running copy per user. The first launch holds a lock file and listens on a local
// socket beside it (in the user's runtime folder); a later launch hands its request over
// to it and exits, so the running window comes to the front (and starts a session when
// asked) instead of a second window opening on the same devices.
class SingleInstance : public QObject
{
    Q_OBJECT
public:
    // What a launch asks of the running copy.
    struct Request
    {
        bool start = false; // begin a session
    };

    // primary: this is the running copy. handedOver: another copy runs and took the
    // request. failed: another copy runs but did not take it. alone: the check itself could
    // not be made (no writable runtime folder); this copy runs without it.
    enum class Role { primary, handedOver, failed, alone };

    struct Outcome
    {
        Role role = Role::failed;
        QString error; // for failed and alone: one sentence for the user
    };

    // `directory` holds the lock and the socket (by default the user's runtime folder);
    // `scope` tells apart copies that may run side by side, such as ones with settings of
    // their own (a different $HOME): one running copy per scope.
    SingleInstance(const QString &directory, const QString &scope, QObject *parent = nullptr);
    ~SingleInstance() override;

    static QString defaultDirectory();

    // Becomes the running copy, or hands `request` to the one already running and waits
    // (up to `timeout`) for it to confirm. Blocks the calling thread while handing over.
    Outcome claim(const Request &request, std::chrono::milliseconds timeout = std::chrono::seconds(5));

    // Whether a copy runs in this scope, and whether it has a session running, without
    // claiming or requesting anything (for commands that must not disturb an interview).
    struct Status
    {
        bool running = false;
        bool sessionRunning = false;
        QString error; // the running copy did not answer: one sentence for the user
    };
    Status status(std::chrono::milliseconds timeout = std::chrono::seconds(5));
    // In the running copy: how it answers status questions.
    void setSessionQuery(std::function<bool()> sessionRunning) { m_sessionRunning = std::move(sessionRunning); }

    QString socketPath() const;

signals:
    // In the running copy: another launch asked for `request`.
    void requested(const SingleInstance::Request &request);

private:
    Result<void> listen();
    Outcome handOver(const Request &request, std::chrono::milliseconds timeout);
    // Sends one line to the running copy and returns its one-line answer; fails when none came.
    static Result<QJsonObject> exchange(const QString &socketPath, const QByteArray &line,
                                        std::chrono::milliseconds timeout);
    static QString refusedText();
    void onConnection();

    QString fileName(const char *suffix) const;

    QString m_directory;
    QString m_scope;
    std::unique_ptr<QLockFile> m_lock;
    QLocalServer *m_server = nullptr;
    std::function<bool()> m_sessionRunning;
};
