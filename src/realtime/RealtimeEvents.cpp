#include "realtime/RealtimeEvents.h"

#include <QMetaType>

RealtimeEvents::RealtimeEvents(QObject *parent) : QObject(parent)
{
    // Queued across threads by relay().
    qRegisterMetaType<RealtimeStatus>();
}

RealtimeEvents::~RealtimeEvents() = default;

namespace {

template<typename Signal>
void relayOne(const RealtimeEvents *from, RealtimeEvents *to, Signal signal)
{
    QObject::connect(from, signal, to, signal, Qt::QueuedConnection);
}

} // namespace

void RealtimeEvents::relay(const RealtimeEvents *from, RealtimeEvents *to)
{
    relayOne(from, to, &RealtimeEvents::statusChanged);
    relayOne(from, to, &RealtimeEvents::transcriptCompleted);
    relayOne(from, to, &RealtimeEvents::answerDelta);
    relayOne(from, to, &RealtimeEvents::responseDone);
    relayOne(from, to, &RealtimeEvents::usageReported);
    relayOne(from, to, &RealtimeEvents::logLine);
    relayOne(from, to, &RealtimeEvents::traceLine);
    relayOne(from, to, &RealtimeEvents::meetingSpeechStarted);
    relayOne(from, to, &RealtimeEvents::meetingSpeechStopped);
    relayOne(from, to, &RealtimeEvents::transcriptDeltaReceived);
    relayOne(from, to, &RealtimeEvents::transcriptionFailed);
    relayOne(from, to, &RealtimeEvents::transcriptionUsageReported);
    relayOne(from, to, &RealtimeEvents::responseCreated);
    relayOne(from, to, &RealtimeEvents::responseEnded);
    relayOne(from, to, &RealtimeEvents::sessionConfigured);
    relayOne(from, to, &RealtimeEvents::transcribeModelFellBack);
    relayOne(from, to, &RealtimeEvents::noticeRaised);
}
