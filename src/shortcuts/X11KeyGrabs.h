#pragma once

#include "shortcuts/KeyNames.h"
#include "shortcuts/ShortcutBackend.h"

#include <QAbstractNativeEventFilter>

#include <cstdint>
#include <vector>

struct xcb_connection_t;

// Global shortcuts on an X11 display (including XWayland, where they fire while an X11
// window has the focus): each key combination is grabbed on the root window, with and
// without Caps Lock and Num Lock. Needs the xcb platform.
class X11KeyGrabs : public ShortcutBackend, public QAbstractNativeEventFilter
{
    Q_OBJECT
public:
    explicit X11KeyGrabs(QObject *parent = nullptr);
    ~X11KeyGrabs() override;

    // Whether this process draws on an X11 display.
    static bool isAvailable();

    void bind(const QList<Binding> &bindings) override;

    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *result) override;

private:
    struct Grab
    {
        QString id;
        std::uint8_t keycode = 0;
        std::uint16_t modifiers = 0;
    };

    void releaseAll();

    xcb_connection_t *m_connection = nullptr;
    std::uint32_t m_root = 0;
    std::vector<Grab> m_grabs;
};
