#pragma once

#include <QString>
#include <QVariantMap>

#include <functional>

// What the session needs of the service that transcribes the user's microphone when the user
// has opted in ("Transcribe my answers with OpenAI"): a connection of its own that hears the
// microphone and reports each spoken item's text. start()/stop() and the callbacks are on the
// GUI thread; appendMicBuffer() on the audio thread.
class ServiceTranscription
{
public:
    struct Config
    {
        QString apiKey;
        QString model;
        double vadThreshold = 0.5;
        int prefixPaddingMs = 300;
        int silenceDurationMs = 500;
    };

    virtual ~ServiceTranscription() = default;

    virtual void start(const Config &config) = 0;
    virtual void stop() = 0;
    // Audio thread: 48 kHz float mono microphone audio; dropped while not started. Never blocks.
    virtual void appendMicBuffer(const float *samples, int frames) = 0;

    // A piece of an item's text, to be appended to what came before for that item.
    std::function<void(const QString &itemID, const QString &delta)> onDelta;
    // An item's whole text (may be empty).
    std::function<void(const QString &itemID, const QString &transcript)> onCompleted;
    std::function<void(const QString &itemID, const QString &message)> onFailed;
    // The service's usage for an item, billed by the transcription model.
    std::function<void(const QVariantMap &usage)> onUsage;
    // The connection cannot be used (refused key or address); nothing more will come.
    std::function<void(const QString &message)> onFailure;
};
