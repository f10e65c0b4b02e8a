#include "app/AppShell.h"

#include "app/UnwiredComponents.h"
#include "session/SessionController.h"
#include "session/SystemClock.h"
#include "settings/AppSettings.h"
#include "ui/DBusFileRevealer.h"
#include "ui/DBusIdleInhibitor.h"
#include "ui/DialogRecordingPicker.h"
#include "ui/MainWindow.h"
#include "ui/Theme.h"

struct AppShell::Parts
{
    AppSettings settings;
    SystemClock clock;
    DBusIdleInhibitor idleInhibitor;
    DBusFileRevealer fileRevealer;
    DialogRecordingPicker recordingPicker;

    // Placeholders until the real components are wired in (see UnwiredComponents.h).
    UnwiredRealtimeLink realtime;
    UnwiredCaptureLink capture;
    UnwiredTapQueries taps;
    UnwiredMicTranscription micTranscription;
    UnwiredRecordingTranscription recordingTranscription;
    UnwiredAudioEnvironment audioEnvironment;

    SessionController controller{SessionController::Components{
        settings, realtime, capture, taps, micTranscription, recordingTranscription, clock, idleInhibitor,
        fileRevealer, recordingPicker, {}}};
    std::unique_ptr<MainWindow> window;
};

AppShell::AppShell()
    : m_parts(std::make_unique<Parts>())
{
    Theme::install();
    m_parts->window = std::make_unique<MainWindow>(
        m_parts->settings, m_parts->controller,
        MainWindow::Services{m_parts->fileRevealer, m_parts->taps, m_parts->audioEnvironment});
    m_parts->recordingPicker.setParentWindow(m_parts->window.get());
}

AppShell::~AppShell()
{
    // A session still running at quit is stopped so its records are closed.
    m_parts->controller.stop();
    m_parts->window.reset();
}

AppSettings &AppShell::settings() { return m_parts->settings; }
SessionController &AppShell::controller() { return m_parts->controller; }
MainWindow &AppShell::window() { return *m_parts->window; }

void AppShell::show()
{
    m_parts->window->show();
}
