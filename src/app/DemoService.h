#pragma once

#include <QObject>
#include <QProcess>
#include <QSettings>
#include <QString>
#include <QTemporaryDir>

#include <memory>
#include <optional>

class SecretStore;

// The sample interview's stand-in for the realtime service: the local simulator
// (`ketterbloom-sim`, installed next to the program) started as a child process on a free
// port of 127.0.0.1 with the sample interview's script, and the settings a sample session runs
// with, in a folder of its own so the user's settings and key are never touched: the
// interviewer's recording as the meeting, stopping at its end, a placeholder key.
class DemoService : public QObject
{
    Q_OBJECT
public:
    static constexpr int startTimeoutMs = 10000;
    static constexpr const char *placeholderKey = "sk-sample-interview";

    explicit DemoService(QObject *parent = nullptr);
    ~DemoService() override;

    // Finds the files, starts the simulator and points this process's realtime connection at
    // it. Returns a user-readable error.
    std::optional<QString> start();
    QString url() const { return m_url; }
    QString recordingPath() const { return m_recordingPath; }
    // This process's environment before start() pointed it at the stand-in: for starting the
    // real Ketterbloom from the sample.
    QProcessEnvironment environmentBefore() const { return m_environmentBefore; }

    // The settings store and key folder of the sample session (after a successful start).
    std::unique_ptr<QSettings> settingsStore() const;
    SecretStore secrets() const;

    // The sample interview's files and the simulator, installed or in the build tree.
    static QString findDemoDirectory();
    static QString findSimulator();

private:
    void stopSimulator();

    QTemporaryDir m_home;
    QProcess m_simulator;
    QString m_url;
    QString m_recordingPath;
    QProcessEnvironment m_environmentBefore = QProcessEnvironment::systemEnvironment();
};
