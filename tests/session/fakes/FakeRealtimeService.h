#pragma once

#include "realtime/RealtimeService.h"

#include <QList>
#include <QSet>

// Records every call; tests raise the events themselves through the helpers, in the
// order the service sends them. Like the service, delta() and done() announce a
// response first (response.created) unless the test did; strayDelta() and strayDone() don't.
class FakeRealtimeService final : public RealtimeService
{
public:
    void start(const RealtimeConfig &config) override { starts.append(config); }
    void stop() override { ++stopCount; }
    void append(const QByteArray &pcm16) override { appended.append(pcm16); }
    void updateHistory(const History &history) override { histories.append(history); }
    void updateInstructions(const QString &instructions) override { instructionUpdates.append(instructions); }
    void regenerate(const QString &question) override
    {
        regenerated.append(question);
        m_asked = true;
    }
    bool askAboutImage(const QByteArray &jpeg, const QString &text) override
    {
        if (acceptsImages)
            images.append({jpeg, text});
        m_asked = m_asked || acceptsImages;
        return acceptsImages;
    }

    // A completed transcript; without an item id each call names an item of its own.
    void transcript(const QString &text, const QString &itemID = QString())
    {
        emit transcriptCompleted(itemID.isEmpty() ? QStringLiteral("item_auto_%1").arg(++m_items) : itemID, text);
    }
    void delta(const QString &responseID, const QString &text)
    {
        announce(responseID);
        emit answerDelta(responseID, text);
    }
    void done(const QString &responseID)
    {
        announce(responseID);
        emit responseDone(responseID);
    }
    // A whole answer in one delta; requestedAnswer() is the response to a request of ours.
    void answer(const QString &responseID, const QString &text)
    {
        delta(responseID, text);
        done(responseID);
    }
    void requestedAnswer(const QString &responseID, const QString &text)
    {
        created(responseID, true);
        answer(responseID, text);
    }
    // The question completed first, then its whole answer.
    void exchange(const QString &question, const QString &responseID, const QString &text)
    {
        transcript(question);
        answer(responseID, text);
    }
    void strayDelta(const QString &responseID, const QString &text) { emit answerDelta(responseID, text); }
    void strayDone(const QString &responseID) { emit responseDone(responseID); }
    void usage(const QVariantMap &usage) { emit usageReported(usage); }
    void status(const RealtimeStatus &status) { emit statusChanged(status); }

    void speechStarted(const QString &itemID) { emit meetingSpeechStarted(itemID); }
    void speechStopped(const QString &itemID) { emit meetingSpeechStopped(itemID); }
    // Speech that starts and stops; opened() also has the service create its response.
    void speech(const QString &itemID)
    {
        speechStarted(itemID);
        speechStopped(itemID);
    }
    void opened(const QString &itemID, const QString &responseID)
    {
        speech(itemID);
        created(responseID);
    }
    // Speech and its transcript, with no response from the service (it is busy); heard()
    // is the same turn with the response the service creates at the end of speech.
    void asked(const QString &itemID, const QString &question)
    {
        speech(itemID);
        transcript(question, itemID);
    }
    void heard(const QString &itemID, const QString &responseID, const QString &question)
    {
        opened(itemID, responseID);
        transcript(question, itemID);
    }
    void transcriptDelta(const QString &itemID, const QString &text) { emit transcriptDeltaReceived(itemID, text); }
    void transcriptFailed(const QString &itemID, const QString &message) { emit transcriptionFailed(itemID, message); }
    void transcriptionUsage(const QString &itemID, const QVariantMap &usage) { emit transcriptionUsageReported(itemID, usage); }
    void transcribedSeconds(const QString &itemID, double seconds)
    {
        transcriptionUsage(itemID, {{QStringLiteral("type"), QStringLiteral("duration")}, {QStringLiteral("seconds"), seconds}});
    }
    void created(const QString &responseID, bool requested = false)
    {
        m_announced.insert(responseID);
        m_asked = false;
        emit responseCreated(responseID, requested);
    }
    void ended(const QString &responseID, const QString &status, const QString &reason = QString(), bool transient = false)
    {
        emit responseEnded(responseID, status, reason, transient);
    }
    void log(const QString &line) { emit logLine(line); }
    void notice(const QString &text) { emit noticeRaised(text); }
    void modelFallback(const QString &refused, const QString &used) { emit transcribeModelFellBack(refused, used); }
    void configured()
    {
        m_announced.clear();
        emit sessionConfigured();
    }

    // One whole turn the way the service reports it with turn detection: speech, the
    // response created, the answer streamed, the transcript completing part-way through,
    // the response done.
    void turn(const QString &itemID, const QString &responseID, const QString &question, const QString &answer)
    {
        opened(itemID, responseID);
        transcriptDelta(itemID, question.left(question.size() / 2));
        delta(responseID, answer.left(answer.size() / 2));
        transcriptDelta(itemID, question.mid(question.size() / 2));
        transcript(question, itemID);
        delta(responseID, answer.mid(answer.size() / 2));
        done(responseID);
    }

    QList<RealtimeConfig> starts;
    int stopCount = 0;
    QByteArray appended;
    QList<History> histories;
    QStringList instructionUpdates;
    QStringList regenerated;
    QList<std::pair<QByteArray, QString>> images; // pictures asked about, with their text
    bool acceptsImages = true;

private:
    // As the connection does: the first response after a request of ours is "requested".
    void announce(const QString &responseID)
    {
        if (!m_announced.contains(responseID))
            created(responseID, m_asked);
    }

    int m_items = 0;
    QSet<QString> m_announced;   // on this socket
    bool m_asked = false;        // a request of ours awaits its response
};
