#pragma once

#include <QCoreApplication>
#include <QString>

class AppSettings;
class QWidget;

// File ▸ Review a Session…: asks for a saved session's events log or transcript (in the
// sessions folder), writes its review page beside it and opens the page in the browser. A
// file that is not a session's records, or a page that can't be written, is said in a
// message box.
class SessionReviewOpener
{
    Q_DECLARE_TR_FUNCTIONS(SessionReviewOpener)

public:
    static void run(const AppSettings &settings, QWidget *parent);

    // Writes and opens the page of the session at `path`; the reason when it could not.
    static QString open(const QString &path, const AppSettings &settings);
};
