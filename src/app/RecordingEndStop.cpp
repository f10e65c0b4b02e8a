#include "app/RecordingEndStop.h"

#include "session/QAPair.h"
#include "session/SessionController.h"
#include "settings/AppSettings.h"

RecordingEndStop::RecordingEndStop(AppSettings &settings, SessionController &controller, QObject *parent)
    : QObject(parent)
    , m_settings(settings)
    , m_controller(controller)
{
    m_poll.setInterval(pollMs);
    connect(&m_poll, &QTimer::timeout, this, &RecordingEndStop::check);
    connect(&m_controller, &SessionController::isSessionActiveChanged, this, [this] {
        if (!m_controller.isSessionActive())
            m_poll.stop();
    });
}

void RecordingEndStop::recordingEnded()
{
    if (!m_settings.stopAtRecordingEnd() || !m_controller.isSessionActive())
        return;
    m_waitedMs = 0;
    m_poll.start();
}

void RecordingEndStop::check()
{
    m_waitedMs += pollMs;
    bool busy = false;
    for (const QAPair &pair : m_controller.pairs())
        busy = busy || !pair.isComplete || pair.questionInProgress;
    if (busy && m_waitedMs < graceMs)
        return;
    m_poll.stop();
    if (!m_controller.isSessionActive())
        return;
    if (m_stop)
        m_stop();
    else
        m_controller.stop();
}
