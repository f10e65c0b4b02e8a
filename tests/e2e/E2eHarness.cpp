#include "E2eHarness.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcessEnvironment>
#include <QSettings>
#include <QThread>

#include <csignal>

#include <sys/resource.h>

namespace e2e {

QString readText(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll());
}

QList<QJsonObject> readJsonLines(const QString &path)
{
    QList<QJsonObject> objects;
    const QStringList lines = readText(path).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString &line : lines)
        objects.append(QJsonDocument::fromJson(line.toUtf8()).object());
    return objects;
}

Simulator::~Simulator()
{
    if (m_process && m_process->state() != QProcess::NotRunning) {
        m_process->write("quit\n");
        if (!m_process->waitForFinished(3000))
            m_process->kill();
        m_process->waitForFinished(3000);
    }
}

bool Simulator::start(const QJsonObject &script, const QString &dir, Mode mode, const QStringList &extraArguments)
{
    const QString scriptPath = dir + QStringLiteral("/script.json");
    QFile file(scriptPath);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(QJsonDocument(script).toJson());
    file.close();

    m_process = std::make_unique<QProcess>();
    m_process->setProgram(qEnvironmentVariable("KETTERBLOOM_SIM_EXE"));
    QStringList arguments{QStringLiteral("--script"), scriptPath};
    if (qEnvironmentVariable("KETTERBLOOM_E2E_SIM_MODE") == QLatin1String("classic"))
        mode = Mode::classic;
    if (mode == Mode::realistic)
        arguments.append(QStringLiteral("--realistic"));
    m_process->setArguments(arguments + extraArguments);
    m_process->setProcessChannelMode(QProcess::SeparateChannels);
    m_process->start();
    if (!m_process->waitForStarted(10000))
        return false;
    const QString first = readLine(10000, true);
    if (!first.startsWith(QStringLiteral("KQ_REALTIME_URL=")))
        return false;
    m_url = first.mid(int(qstrlen("KQ_REALTIME_URL=")));
    return true;
}

qint64 Simulator::pid() const
{
    return m_process ? m_process->processId() : 0;
}

QString Simulator::readLine(int timeoutMs, bool skipEvents)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired()) {
        while (m_process->canReadLine()) {
            const QString line = QString::fromUtf8(m_process->readLine()).trimmed();
            if (skipEvents && line.startsWith(QStringLiteral("event "))) {
                m_events.append(line);
                continue;
            }
            return line;
        }
        if (m_process->state() == QProcess::NotRunning)
            return {};
        m_process->waitForReadyRead(int(qMin<qint64>(200, qMax<qint64>(1, deadline.remainingTime()))));
    }
    return {};
}

QString Simulator::command(const QString &line, int timeoutMs)
{
    m_process->write(line.toUtf8() + '\n');
    return readLine(timeoutMs, true);
}

bool Simulator::waitForConnections(int count, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired()) {
        const QString status = command(QStringLiteral("status"));
        // "status connections=<accepted> open=<open> records=<n>"
        const int at = status.indexOf(QStringLiteral("connections="));
        if (at >= 0 && status.mid(at + 12).section(QLatin1Char(' '), 0, 0).toInt() >= count)
            return true;
        QThread::msleep(200);
    }
    return false;
}

QList<QJsonObject> Simulator::records(const QString &type)
{
    // "records" answers with one "record {...}" line per received message, then "ok".
    QList<QJsonObject> matching;
    m_process->write("records\n");
    for (QString line = readLine(10000, true); line.startsWith(QStringLiteral("record ")); line = readLine(10000, true)) {
        const QJsonObject record = QJsonDocument::fromJson(line.mid(7).toUtf8()).object();
        if (record.value(QStringLiteral("type")).toString() == type)
            matching.append(record);
    }
    return matching;
}

App::App(const QString &home)
    : m_home(home)
{
    QDir().mkpath(m_home + QStringLiteral("/.config"));
}

App::~App()
{
    if (m_process && m_process->state() != QProcess::NotRunning) {
        m_process->kill();
        m_process->waitForFinished(3000);
    }
}

void App::writeSettings(const QJsonObject &values)
{
    QSettings settings(m_home + QStringLiteral("/.config/Ketterbloom.conf"), QSettings::IniFormat);
    for (auto it = values.begin(); it != values.end(); ++it)
        settings.setValue(it.key(), it.value().toVariant());
    settings.sync();
}

bool App::start(const QStringList &arguments, const QString &realtimeUrl)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), m_home);
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), m_home + QStringLiteral("/.config"));
    env.insert(QStringLiteral("XDG_DATA_HOME"), m_home + QStringLiteral("/.local/share"));
    env.insert(QStringLiteral("XDG_CACHE_HOME"), m_home + QStringLiteral("/.cache"));
    env.remove(QStringLiteral("XDG_DOCUMENTS_DIR"));
    env.insert(QStringLiteral("OPENAI_API_KEY"), QStringLiteral("sk-e2e-test-key"));
    env.insert(QStringLiteral("KQ_REALTIME_URL"), realtimeUrl);
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    for (const auto &[name, value] : m_environment) {
        if (value.isNull())
            env.remove(name);
        else
            env.insert(name, value);
    }
    m_process = std::make_unique<QProcess>();
    m_process->setProcessEnvironment(env);
    m_process->setProgram(qEnvironmentVariable("KETTERBLOOM_EXE"));
    m_process->setArguments(arguments);
    if (m_fileSizeLimit > 0) {
        m_process->setChildProcessModifier([limit = rlim_t(m_fileSizeLimit)] {
            ::signal(SIGXFSZ, SIG_IGN);   // a write beyond the limit fails instead of killing
            rlimit size{};
            ::getrlimit(RLIMIT_FSIZE, &size);
            size.rlim_cur = limit;
            ::setrlimit(RLIMIT_FSIZE, &size);
        });
    }
    if (!m_outPath.isEmpty())
        m_process->setStandardOutputFile(m_outPath);
    if (!m_errPath.isEmpty())
        m_process->setStandardErrorFile(m_errPath);
    m_process->start();
    return m_process->waitForStarted(10000);
}

void App::setEnvironment(const QString &name, const QString &value)
{
    m_environment.append({name, value});
}

void App::setOutputFiles(const QString &outPath, const QString &errPath)
{
    m_outPath = outPath;
    m_errPath = errPath;
}

qint64 App::pid() const
{
    return m_process ? m_process->processId() : 0;
}

bool App::wait(int timeoutMs)
{
    const bool finished = m_process->waitForFinished(timeoutMs);
    if (!finished) {
        m_process->kill();
        m_process->waitForFinished(3000);
    }
    if (m_outPath.isEmpty())
        m_out += QString::fromUtf8(m_process->readAllStandardOutput());
    if (m_errPath.isEmpty())
        m_err += QString::fromUtf8(m_process->readAllStandardError());
    return finished;
}

int App::exitCode() const
{
    return m_process->exitStatus() == QProcess::NormalExit ? m_process->exitCode() : -1;
}

QString App::sessionFolder() const
{
    return m_home + QStringLiteral("/Documents/Ketterbloom");
}

QString App::newestFile(const QString &suffix) const
{
    const QFileInfoList files = QDir(sessionFolder()).entryInfoList(QDir::Files, QDir::Time);
    for (const QFileInfo &info : files) {
        if (info.fileName().endsWith(suffix))
            return info.absoluteFilePath();
    }
    return {};
}

QList<QJsonObject> App::events(const QString &event) const
{
    const QString log = newestFile(QStringLiteral(".events.jsonl"));
    QList<QJsonObject> lines = log.isEmpty() ? QList<QJsonObject>{} : readJsonLines(log);
    if (!event.isEmpty())
        lines.removeIf([&event](const QJsonObject &line) { return line.value(QStringLiteral("event")).toString() != event; });
    return lines;
}

bool App::waitForEvents(const QString &event, int count, int timeoutMs) const
{
    QDeadlineTimer deadline(timeoutMs);
    while (events(event).size() < count) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(100);
    }
    return true;
}

} // namespace e2e
