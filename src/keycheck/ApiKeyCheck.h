#pragma once

#include "common/Result.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

class QNetworkAccessManager;
class QNetworkReply;
class QTimer;

// Asks the model service whether an API key works: one GET /v1/models with the key, on the
// host the realtime connection would use (KQ_REALTIME_URL's host when set, so tests and the
// simulator stay on this machine). The key goes only where the realtime connection would
// send it: never over plain HTTP to another machine.
class ApiKeyCheck : public QObject
{
    Q_OBJECT
public:
    enum class Outcome { works, rejected, unreachable, refused };
    struct Result
    {
        Outcome outcome = Outcome::unreachable;
        QString message;   // one sentence for the user
    };

    static constexpr int defaultTimeoutMs = 15000;

    explicit ApiKeyCheck(QObject *parent = nullptr);
    ~ApiKeyCheck() override;

    // Starts a check (cancelling one under way); `finished` follows, also for an empty key.
    // `realtimeOverride` is KQ_REALTIME_URL's value, or null for the service's own address.
    void check(const QString &key, const QString &realtimeOverride);
    // The same with KQ_REALTIME_URL from the environment.
    void check(const QString &key);
    void cancel();
    bool isRunning() const { return !m_reply.isNull(); }
    void setTimeout(int ms);

    // The address asked; fails with the reason where the key must not be sent.
    static ::Result<QUrl> modelsUrl(const QString &realtimeOverride);
    // What an HTTP status means for the user.
    static Result fromStatus(int httpStatus);

signals:
    void finished(const ApiKeyCheck::Result &result);

private:
    void replyFinished();
    void finish(const Result &result);

    QNetworkAccessManager *m_network;
    QTimer *m_timeout;
    QPointer<QNetworkReply> m_reply;
};
