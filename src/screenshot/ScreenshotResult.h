#pragma once

#include <QCoreApplication>
#include <QImage>
#include <QMetaType>
#include <QString>

// What one attempt to take a screenshot gave: the image, or why there is none. `message` is
// one line for the user's banner; it always says that nothing was sent.
struct ScreenshotResult
{
    enum class Outcome {
        captured,    // `image` holds the screen
        cancelled,   // the user closed the desktop's screenshot dialog
        refused,     // the desktop did not allow it (permission denied or another end)
        unavailable, // neither the portal nor an X11 display is there
        failed,      // it was taken but could not be read
    };

    Outcome outcome = Outcome::failed;
    QImage image;
    QString message;

    bool isCaptured() const { return outcome == Outcome::captured && !image.isNull(); }

    static ScreenshotResult captured(const QImage &image);
    static ScreenshotResult cancelled();
    static ScreenshotResult refused();
    static ScreenshotResult unavailable();
    static ScreenshotResult failed(const QString &why);

    Q_DECLARE_TR_FUNCTIONS(ScreenshotResult)
};
Q_DECLARE_METATYPE(ScreenshotResult)
