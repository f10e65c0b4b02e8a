#pragma once

#include "common/Result.h"

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>
#include <QVariantMap>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>

class QNetworkAccessManager;
class QNetworkReply;
class QTimer;

// What transcribing clips through the service needs, read from the settings.
struct AudioTranscriptionConfig
{
    QString apiKey;
    QString model;    // the transcription model, e.g. "gpt-4o-transcribe"
    QString language; // ISO-639-1 hint, empty = none

    friend bool operator==(const AudioTranscriptionConfig &, const AudioTranscriptionConfig &) = default;
};

// The service's transcription endpoint (POST /v1/audio/transcriptions) for short clips: one
// multipart/form-data request per clip (the clip as a 16-bit mono WAV, the model,
// response_format=json and the language when set) with the key as a Bearer token. The address
// follows the realtime connection's host (KQ_REALTIME_URL) by the same rules: the key goes
// only over https, or plain http on this computer, and never into a log. A rate limit is
// retried a few times, honouring Retry-After; every other failure ends the clip with one
// sentence for the user. Lives on the thread that creates it, which runs an event loop;
// completions arrive there.
class AudioTranscriptionClient : public QObject
{
    Q_OBJECT
public:
    struct Text
    {
        QString text;
        QVariantMap usage; // the answer's "usage" object; empty when it had none
    };
    // The clip's text, or one sentence for the user on why there is none.
    using Outcome = Result<Text>;
    using Completion = std::function<void(const Outcome &)>;

    // Time constants; tests shorten them.
    struct Timing
    {
        int secondMs = 1000;              // one second of a Retry-After or back-off wait
        int maxRateLimitRetries = 3;      // per clip
        double maxRetryWaitSeconds = 30;  // a longer Retry-After ends the clip instead
        int transferTimeoutMs = 120000;   // per request, without any data moving
    };

    // `realtimeOverride`: KQ_REALTIME_URL's value, or a null string for the service's own address.
    AudioTranscriptionClient(const AudioTranscriptionConfig &config, const QString &realtimeOverride,
                             const Timing &timing, QObject *parent = nullptr);
    // The same with KQ_REALTIME_URL from the environment and the usual timing.
    explicit AudioTranscriptionClient(const AudioTranscriptionConfig &config, QObject *parent = nullptr);
    ~AudioTranscriptionClient() override;

    // Whether a clip can be sent: fails with why not (no key, an address the key may not go to).
    Result<void> usable() const;
    QUrl url() const { return m_url; }

    // Sends one clip (a WAV file); `completion` is called once, unless cancel() comes first.
    void transcribe(const QByteArray &wav, Completion completion);
    // Aborts every request under way and every retry waiting; their completions never come.
    void cancel();
    int pending() const { return int(m_requests.size()); }

    // The sentence for an answer that was not a success: `body` may hold the service's error object.
    static QString failureMessage(int httpStatus, const QByteArray &body, const QString &model);
    // "can't reach <host>: <reason>" for a request that got no answer at all.
    static QString unreachableMessage(int networkError, const QString &host, const QString &errorString);
    // Seconds a rate-limited request asks to wait ("retry-after-ms" first, then "retry-after"
    // in seconds); none when neither is readable.
    static std::optional<double> retryAfterSeconds(const QByteArray &retryAfterMs, const QByteArray &retryAfter);

private:
    struct Request
    {
        QByteArray wav;
        Completion completion;
        int rateLimitRetries = 0;
        QPointer<QNetworkReply> reply;
        QTimer *retryTimer = nullptr;
    };
    void send(quint64 id);
    void replyFinished(quint64 id);
    bool retryLater(quint64 id, QNetworkReply *reply);
    void finish(quint64 id, const Outcome &outcome);

    const AudioTranscriptionConfig m_config;
    const Timing m_timing;
    QUrl m_url;
    QString m_addressError;
    QNetworkAccessManager *m_network;
    std::map<quint64, Request> m_requests;
    quint64 m_nextId = 0;
};
