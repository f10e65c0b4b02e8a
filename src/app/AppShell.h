#pragma once

#include <memory>

class AppSettings;
class DemoService;
class MainWindow;
class SessionController;

// The running application: the one settings object, the session controller with its
// components, the desktop services, and the main window. Create it after the
// QApplication; destroy it before.
class AppShell
{
public:
    // With a started `demo`, a sample interview: its settings, the ribbon, no updates offered.
    explicit AppShell(DemoService *demo = nullptr);
    ~AppShell();

    AppSettings &settings();
    SessionController &controller();
    MainWindow &window();

    // Applies the style and shows the window (with the onboarding on first run).
    void show();

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};
