#pragma once

#include "realtime/RealtimeClient.h"
#include "session/RealtimeLink.h"

// Presents the realtime client to the session controller: every callback of the client is
// forwarded to the one of the same name, already on the GUI thread.
class RealtimeClientLink final : public RealtimeLink
{
public:
    explicit RealtimeClientLink(RealtimeClient &client) : m_client(client)
    {
        forward(m_client.onStatus, &RealtimeLink::onStatus);
        forward(m_client.onTranscript, &RealtimeLink::onTranscript);
        forward(m_client.onDelta, &RealtimeLink::onDelta);
        forward(m_client.onResponseDone, &RealtimeLink::onResponseDone);
        forward(m_client.onUsage, &RealtimeLink::onUsage);
        forward(m_client.onLog, &RealtimeLink::onLog);
        forward(m_client.onSpeechStarted, &RealtimeLink::onSpeechStarted);
        forward(m_client.onSpeechStopped, &RealtimeLink::onSpeechStopped);
        forward(m_client.onTranscriptDelta, &RealtimeLink::onTranscriptDelta);
        forward(m_client.onTranscriptFailed, &RealtimeLink::onTranscriptFailed);
        forward(m_client.onTranscriptionUsage, &RealtimeLink::onTranscriptionUsage);
        forward(m_client.onResponseCreated, &RealtimeLink::onResponseCreated);
        forward(m_client.onResponseEnded, &RealtimeLink::onResponseEnded);
        forward(m_client.onConfigured, &RealtimeLink::onConfigured);
        forward(m_client.onTranscribeModelFallback, &RealtimeLink::onTranscribeModelFallback);
        forward(m_client.onNotice, &RealtimeLink::onNotice);
    }

    void start(const RealtimeConfig &config) override { m_client.start(config); }
    void stop() override { m_client.stop(); }
    void append(const QByteArray &pcm16) override { m_client.append(pcm16); }
    void updateHistory(const History &history) override { m_client.updateHistory(history); }
    void updateInstructions(const QString &instructions) override { m_client.updateInstructions(instructions); }
    void regenerate(const QString &question) override { m_client.regenerate(question); }

private:
    // The link's callback is read when the event arrives, so the session may install it after
    // the link was made.
    template<typename... Args>
    void forward(std::function<void(Args...)> &source, std::function<void(Args...)> RealtimeLink::*target)
    {
        source = [this, target](Args... args) {
            if (this->*target)
                (this->*target)(args...);
        };
    }

    RealtimeClient &m_client;
};
