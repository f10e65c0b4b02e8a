#pragma once

#include "screenshot/ScreenshotResult.h"

#include <QCoreApplication>

class QScreen;

// The fallback when there is no screenshot portal: the X11 root window under one screen,
// read straight from the X server. Only possible when the application runs on X11 (xcb).
class X11ScreenGrab
{
    Q_DECLARE_TR_FUNCTIONS(X11ScreenGrab)

public:
    static bool isAvailable();
    // The whole of `screen` (the primary screen when null).
    static ScreenshotResult grab(QScreen *screen);
};
