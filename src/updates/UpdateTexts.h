#pragma once

#include <QString>

// Every line the updater shows in the banner.
namespace UpdateTexts {

// The command that updates a package install by hand.
QString aptCommand();

QString checking();
QString available(const QString &version);
QString upToDate(const QString &version);
QString updated(const QString &version);
// The same news while a session runs, when the user asked: the restart comes after it.
QString updatedAfterSession(const QString &version);
QString builtFromSource();
// A package built without the project's update source (docs/releasing.md).
QString noUpdateSource();
QString installing(const QString &version);

QString packageKitMissing();
QString checkFailed(const QString &details);
QString installMissing(const QString &version);
QString installRefused(const QString &version);
QString installFailed(const QString &version, const QString &details);
QString restartFailed(const QString &version, const QString &reason);

// A package version as users know it: "1:0.2.0-1" → "0.2.0" (no epoch, no packaging revision).
QString displayVersion(const QString &packageVersion);
// A daemon's message squeezed onto part of one line.
QString oneLine(const QString &details);

} // namespace UpdateTexts
