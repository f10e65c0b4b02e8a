#include "audio/AudioApplications.h"

#include <QCoreApplication>

namespace AudioApplications {

namespace {
const QString kId = QStringLiteral("application.id");
const QString kBinary = QStringLiteral("application.process.binary");
const QString kName = QStringLiteral("application.name");
const QString kPid = QStringLiteral("application.process.id");
const QString kOwnID = QStringLiteral("com.velorquin.ketterbloom");
} // namespace

QString appID(const PulseQueries::Properties &p)
{
    for (const QString &key : {kId, kBinary, kName}) {
        const QString v = p.value(key).trimmed();
        if (!v.isEmpty())
            return v;
    }
    return {};
}

QString displayName(const PulseQueries::Properties &p)
{
    for (const QString &key : {kName, kBinary}) {
        const QString v = p.value(key).trimmed();
        if (!v.isEmpty())
            return v;
    }
    return QStringLiteral("PID ") + p.value(kPid, QStringLiteral("-1"));
}

bool isOwnOrServer(const PulseQueries::Properties &p)
{
    if (p.value(kId) == kOwnID)
        return true;
    if (p.value(kPid) == QString::number(QCoreApplication::applicationPid()))
        return true;
    static const QStringList server = {QStringLiteral("pipewire"), QStringLiteral("pipewire-pulse"),
                                       QStringLiteral("wireplumber"), QStringLiteral("pulseaudio"),
                                       QStringLiteral("pactl"), QStringLiteral("pacmd")};
    return server.contains(p.value(kBinary)) || appID(p).isEmpty();
}

bool belongsTo(const PulseQueries::Properties &p, const QString &id)
{
    if (id.isEmpty())
        return false;
    return p.value(kId) == id || p.value(kBinary) == id || appID(p) == id;
}

bool belongsToOrHelper(const PulseQueries::Properties &p, const QString &id)
{
    if (belongsTo(p, id))
        return true;
    for (const QString &helper : helpersOf(id)) {
        if (belongsTo(p, helper))
            return true;
    }
    return false;
}

const QList<QPair<QString, QStringList>> &helpers()
{
    // paplay and pw-play are verified against PulseAudio 16 and PipeWire 0.3.65 (they play as
    // the binaries pacat and pw-cat). The browser entries follow the names their Debian and
    // Flatpak packages run under and have not been checked against a live browser.
    static const QList<QPair<QString, QStringList>> table = {
        {QStringLiteral("paplay"), {QStringLiteral("pacat")}},
        {QStringLiteral("pw-play"), {QStringLiteral("pw-cat")}},
        {QStringLiteral("org.mozilla.firefox"), {QStringLiteral("firefox"), QStringLiteral("firefox-esr"), QStringLiteral("firefox-bin")}},
        {QStringLiteral("com.google.Chrome"), {QStringLiteral("chrome"), QStringLiteral("google-chrome")}},
        {QStringLiteral("org.chromium.Chromium"), {QStringLiteral("chromium"), QStringLiteral("chromium-browser")}},
        {QStringLiteral("com.microsoft.Edge"), {QStringLiteral("msedge")}},
        {QStringLiteral("com.brave.Browser"), {QStringLiteral("brave")}},
    };
    return table;
}

QStringList helpersOf(const QString &id)
{
    for (const auto &entry : helpers()) {
        if (entry.first == id)
            return entry.second;
    }
    return {};
}

} // namespace AudioApplications
