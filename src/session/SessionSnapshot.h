#pragma once

#include <QObject>

// Process-wide view of the session for code that holds no reference to the controller.
namespace SessionSnapshot {
// True while a session is active (set when it becomes active, cleared at Stop).
bool isSessionActive();
void setSessionActive(bool active);
} // namespace SessionSnapshot

// Process-wide session notifications. The one instance lives for the whole process; the
// application shell connects to it (for example to relaunch after an update once a
// session has ended).
class SessionEvents : public QObject
{
    Q_OBJECT
public:
    // The notification's name, as other parts of the product know it.
    static constexpr const char *sessionEndedName = "ketterbloom.session.ended";

    static SessionEvents &instance();

    // Posted at every Stop. Emitted on the GUI thread.
    void postSessionEnded() { emit sessionEnded(); }

signals:
    void sessionEnded();

private:
    SessionEvents() = default;
};
