#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

namespace e2e {

// The realtime simulator as a separate process, driven through its standard input.
class Simulator
{
public:
    // `realistic` behaves as the real service does (answers start before the question's
    // transcript completes, transcription deltas and usage, no automatic answer for a turn that
    // ends while one streams, the default transcription model refused ...); `classic` is the
    // simpler, ordered behaviour, for tests that need events in a fixed order.
    enum class Mode { realistic, classic };

    ~Simulator();
    // Starts it with `script`; `extraArguments` go to ketterbloom-sim as they are. With
    // KETTERBLOOM_E2E_SIM_MODE=classic in the environment every run uses the classic mode.
    bool start(const QJsonObject &script, const QString &dir, Mode mode = Mode::realistic,
               const QStringList &extraArguments = {});
    QString url() const { return m_url; }
    // The running process's id, or 0.
    qint64 pid() const;
    // Sends one control command and returns its answer line.
    QString command(const QString &line, int timeoutMs = 5000);
    // Waits until `count` connections have been opened.
    bool waitForConnections(int count, int timeoutMs);
    // Every recorded client message of a type, as objects {connection, type, message}.
    QList<QJsonObject> records(const QString &type);

private:
    QString readLine(int timeoutMs, bool skipEvents);

    std::unique_ptr<QProcess> m_process;
    QString m_url;
    QStringList m_events;
};

// A run of the ketterbloom executable with its own home folder.
class App
{
public:
    explicit App(const QString &home);
    ~App();
    // Writes the settings the run starts with (QSettings key -> value).
    void writeSettings(const QJsonObject &values);
    // Sets (or, with a null value, removes) a variable of the run's environment; call before start().
    void setEnvironment(const QString &name, const QString &value);
    // The largest file the run may write (RLIMIT_FSIZE; larger writes fail with EFBIG, as
    // SIGXFSZ is ignored); call before start().
    void setFileSizeLimit(qint64 bytes) { m_fileSizeLimit = bytes; }
    bool start(const QStringList &arguments, const QString &realtimeUrl);
    // Sends the run's standard output and error to files instead of pipes (call before
    // start(); out() and err() then stay empty). For long runs that nobody reads live.
    void setOutputFiles(const QString &outPath, const QString &errPath);
    // The running process's id, or 0.
    qint64 pid() const;
    // Waits for the process to end; false on time-out (it is then killed).
    bool wait(int timeoutMs);
    int exitCode() const;
    QString out() const { return m_out; }
    QString err() const { return m_err; }
    QString sessionFolder() const;
    // The newest file in the session folder whose name ends with `suffix`.
    QString newestFile(const QString &suffix) const;
    // The lines of the newest events log, or only those of `event`.
    QList<QJsonObject> events(const QString &event = {}) const;
    // Waits until the newest events log holds `count` lines of `event`.
    bool waitForEvents(const QString &event, int count, int timeoutMs) const;

private:
    QString m_home;
    std::unique_ptr<QProcess> m_process;
    QString m_out;
    QString m_err;
    QString m_outPath;
    QString m_errPath;
    QList<QPair<QString, QString>> m_environment;
    qint64 m_fileSizeLimit = 0;
};

// Reads a whole file as UTF-8.
QString readText(const QString &path);
// Lines of a JSON-lines file as objects.
QList<QJsonObject> readJsonLines(const QString &path);

} // namespace e2e
