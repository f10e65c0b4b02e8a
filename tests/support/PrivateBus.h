#pragma once

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

// A private D-Bus session bus (a real dbus-daemon) in a temporary folder. It activates no
// services, so a desktop portal installed on the machine can never answer in a test.
class PrivateBus
{
public:
    ~PrivateBus() { stop(); }

    // False when dbus-daemon cannot be started.
    bool start()
    {
        if (!m_dir.isValid())
            return false;
        const QString socket = m_dir.filePath(QStringLiteral("bus"));
        m_address = QStringLiteral("unix:path=") + socket;
        const QString config = m_dir.filePath(QStringLiteral("bus.conf"));
        QFile file(config);
        if (!file.open(QIODevice::WriteOnly))
            return false;
        file.write(QStringLiteral(
                       "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
                       " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                       "<busconfig><type>session</type><listen>%1</listen>\n"
                       "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
                       "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n")
                       .arg(m_address)
                       .toUtf8());
        file.close();
        m_process.start(QStringLiteral("dbus-daemon"),
                        {QStringLiteral("--nofork"), QStringLiteral("--config-file=") + config});
        if (!m_process.waitForStarted(10000))
            return false;
        for (int i = 0; i < 200 && !QFile::exists(socket); ++i) {
            if (m_process.waitForFinished(50))
                return false;
        }
        return QFile::exists(socket);
    }

    void stop()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.terminate();
            if (!m_process.waitForFinished(5000))
                m_process.kill();
        }
    }

    QString address() const { return m_address; }

private:
    QTemporaryDir m_dir;
    QProcess m_process;
    QString m_address;
};
