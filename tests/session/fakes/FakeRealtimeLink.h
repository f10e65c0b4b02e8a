#pragma once

#include "session/RealtimeLink.h"

#include <QList>

// Records every call; tests raise the callbacks themselves through the helpers.
class FakeRealtimeLink final : public RealtimeLink
{
public:
    void start(const RealtimeConfig &config) override { starts.append(config); }
    void stop() override { ++stopCount; }
    void append(const QByteArray &pcm16) override { appended.append(pcm16); }
    void updateHistory(const History &history) override { histories.append(history); }
    void updateInstructions(const QString &instructions) override { instructionUpdates.append(instructions); }
    void regenerate(const QString &question) override { regenerated.append(question); }
    bool askAboutImage(const QByteArray &jpeg, const QString &text) override
    {
        if (acceptsImages)
            images.append({jpeg, text});
        return acceptsImages;
    }

    void transcript(const QString &text, const QString &itemID = QStringLiteral("item")) { onTranscript(itemID, text); }
    void delta(const QString &responseID, const QString &text) { onDelta(responseID, text); }
    void done(const QString &responseID) { onResponseDone(responseID); }
    void usage(const QVariantMap &usage) { onUsage(usage); }
    void status(const RealtimeStatus &status) { onStatus(status); }

    QList<RealtimeConfig> starts;
    int stopCount = 0;
    QByteArray appended;
    QList<History> histories;
    QStringList instructionUpdates;
    QStringList regenerated;
    QList<std::pair<QByteArray, QString>> images; // pictures asked about, with their text
    bool acceptsImages = true;
};
