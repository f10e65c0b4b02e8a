#pragma once

#include "realtime/RealtimeClient.h"
#include "session/RealtimeLink.h"

// Presents the realtime client to the session controller.
class RealtimeClientLink final : public RealtimeLink
{
public:
    explicit RealtimeClientLink(RealtimeClient &client) : m_client(client)
    {
        m_client.onStatus = [this](const RealtimeStatus &status) { if (onStatus) onStatus(status); };
        m_client.onTranscript = [this](const QString &item, const QString &text) { if (onTranscript) onTranscript(item, text); };
        m_client.onDelta = [this](const QString &response, const QString &delta) { if (onDelta) onDelta(response, delta); };
        m_client.onResponseDone = [this](const QString &response) { if (onResponseDone) onResponseDone(response); };
        m_client.onUsage = [this](const QVariantMap &usage) { if (onUsage) onUsage(usage); };
        m_client.onLog = [this](const QString &message) { if (onLog) onLog(message); };
    }

    void start(const RealtimeConfig &config) override { m_client.start(config); }
    void stop() override { m_client.stop(); }
    void append(const QByteArray &pcm16) override { m_client.append(pcm16); }
    void updateHistory(const History &history) override { m_client.updateHistory(history); }
    void updateInstructions(const QString &instructions) override { m_client.updateInstructions(instructions); }
    void regenerate(const QString &question) override { m_client.regenerate(question); }
    bool askAboutImage(const QByteArray &jpeg, const QString &text) override
    {
        m_client.askAboutImage(jpeg, text);
        return true;
    }

private:
    RealtimeClient &m_client;
};
