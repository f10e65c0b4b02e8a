#include "app/DemoService.h"

#include "realtime/RealtimeProtocol.h"
#include "settings/SecretStore.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include "app/AppLogging.h"

#include <QLoggingCategory>

#include <csignal>
#include <sys/prctl.h>


namespace {

const QString kSimulatorName = QStringLiteral("ketterbloom-sim");
const QString kScriptName = QStringLiteral("interview.json");
const QString kRecordingName = QStringLiteral("interviewer.flac");

QString firstExisting(const QStringList &candidates)
{
    for (const QString &candidate : candidates) {
        if (!candidate.isEmpty() && QFileInfo::exists(candidate))
            return QDir::cleanPath(candidate);
    }
    return {};
}

} // namespace

DemoService::DemoService(QObject *parent)
    : QObject(parent)
{
}

DemoService::~DemoService()
{
    stopSimulator();
}

QString DemoService::findDemoDirectory()
{
    const QString dir = QCoreApplication::applicationDirPath();
    const QString installed = firstExisting({dir + QStringLiteral("/../share/ketterbloom/demo/") + kRecordingName,
                                             QStringLiteral(KB_BUILD_DEMO_DIR "/") + kRecordingName});
    return installed.isEmpty() ? QString() : QFileInfo(installed).absolutePath();
}

QString DemoService::findSimulator()
{
    return firstExisting({QCoreApplication::applicationDirPath() + QLatin1Char('/') + kSimulatorName,
                          QStringLiteral(KB_BUILD_SIM_EXE)});
}

std::optional<QString> DemoService::start()
{
    const QString demoDir = findDemoDirectory();
    const QString simulator = findSimulator();
    if (demoDir.isEmpty() || simulator.isEmpty())
        return QStringLiteral("The sample interview isn't installed (its files or %1 are missing).").arg(kSimulatorName);
    if (!m_home.isValid())
        return QStringLiteral("The sample interview couldn't create its temporary folder.");
    m_recordingPath = demoDir + QLatin1Char('/') + kRecordingName;

    m_simulator.setProgram(simulator);
    m_simulator.setArguments({QStringLiteral("--realistic"), QStringLiteral("--port"), QStringLiteral("0"),
                              QStringLiteral("--script"), demoDir + QLatin1Char('/') + kScriptName});
    m_simulator.setProcessChannelMode(QProcess::SeparateChannels);
    m_simulator.setStandardErrorFile(QProcess::nullDevice());
    // It goes with this process, even one that crashes.
    m_simulator.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    m_simulator.start();
    if (!m_simulator.waitForStarted(startTimeoutMs))
        return QStringLiteral("The sample interview's local service didn't start (%1).").arg(m_simulator.errorString());
    // Its first line is the address it listens on.
    const QDeadlineTimer deadline(startTimeoutMs);
    while (!m_simulator.canReadLine() && !deadline.hasExpired()
           && m_simulator.waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime())))) {
    }
    const QString line = QString::fromUtf8(m_simulator.readLine()).trimmed();
    const QString prefix = QLatin1String(RealtimeProtocol::endpointVariable) + QLatin1Char('=');
    if (!line.startsWith(prefix)) {
        stopSimulator();
        return QStringLiteral("The sample interview's local service didn't say where it listens.");
    }
    m_url = line.mid(prefix.size());
    qCInfo(lcDemo, "[Ketterbloom] sample interview: local service at %s", qUtf8Printable(m_url));
    // This process talks to the stand-in (what it starts gets environmentBefore()).
    m_environmentBefore = QProcessEnvironment::systemEnvironment();
    qputenv(RealtimeProtocol::endpointVariable, m_url.toUtf8());

    // The session's settings, in the temporary folder.
    secrets().save(QString::fromLatin1(placeholderKey));
    std::unique_ptr<QSettings> store = settingsStore();
    store->setValue(QStringLiteral("hasCompletedOnboarding"), true);
    store->setValue(QStringLiteral("meetingSource"), QStringLiteral("recording"));
    store->setValue(QStringLiteral("recordingFile"), m_recordingPath);
    store->setValue(QStringLiteral("stopAtRecordingEnd"), true);
    store->setValue(QStringLiteral("streamSource"), QStringLiteral("meetingOnly"));
    store->setValue(QStringLiteral("saveAudio"), false);
    store->setValue(QStringLiteral("transcribeMyAnswers"), false);
    store->setValue(QStringLiteral("transcribeModel"), QStringLiteral("gpt-4o-transcribe"));
    // A sample role and background, as a user would have them.
    store->setValue(QStringLiteral("companyName"), QStringLiteral("Northwind Payments"));
    store->setValue(QStringLiteral("roleTitle"), QStringLiteral("Senior Backend Engineer"));
    store->setValue(QStringLiteral("jobDescription"),
                    QStringLiteral("Senior Backend Engineer, Payments. Own the services that bill our customers; "
                                   "lead design reviews; mentor two engineers."));
    store->setValue(QStringLiteral("contextText"),
                    QStringLiteral("Seven years in payments and data platforms. Led the billing pipeline rebuild "
                                   "(twelve services, no downtime, invoice errors down ninety percent)."));
    store->sync();
    return std::nullopt;
}

std::unique_ptr<QSettings> DemoService::settingsStore() const
{
    return std::make_unique<QSettings>(m_home.filePath(QStringLiteral("Ketterbloom.conf")), QSettings::NativeFormat);
}

SecretStore DemoService::secrets() const
{
    return SecretStore(m_home.filePath(QStringLiteral("key")), m_home.filePath(QStringLiteral("key-legacy")));
}

void DemoService::stopSimulator()
{
    if (m_simulator.state() == QProcess::NotRunning)
        return;
    m_simulator.write("quit\n");
    if (!m_simulator.waitForFinished(2000)) {
        m_simulator.kill();
        m_simulator.waitForFinished(2000);
    }
}
