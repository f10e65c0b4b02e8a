#include "SoundServer.h"

#include <QElapsedTimer>

#include <algorithm>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QThread>

namespace kbtest {

CommandResult run(const QString &program, const QStringList &args, int timeoutMs)
{
    QProcess p;
    p.start(program, args);
    CommandResult r;
    if (!p.waitForStarted(timeoutMs)) {
        r.err = p.errorString();
        return r;
    }
    if (!p.waitForFinished(timeoutMs)) {
        p.kill();
        p.waitForFinished(2000);
        r.err = QStringLiteral("timed out");
        return r;
    }
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = QString::fromUtf8(p.readAllStandardOutput());
    r.err = QString::fromUtf8(p.readAllStandardError());
    return r;
}

bool soundServerAvailable()
{
    if (qEnvironmentVariableIsEmpty("PULSE_SERVER"))
        return false;
    return run(QStringLiteral("pactl"), {QStringLiteral("info")}, 5000).ok();
}

QString soundServerKind()
{
    return qEnvironmentVariable("KETTERBLOOM_SOUNDSERVER_KIND", QStringLiteral("pipewire"));
}

bool isPipeWire()
{
    return soundServerKind() == QStringLiteral("pipewire");
}

QString defaultSink()
{
    return run(QStringLiteral("pactl"), {QStringLiteral("get-default-sink")}).out.trimmed();
}

QString defaultSource()
{
    return run(QStringLiteral("pactl"), {QStringLiteral("get-default-source")}).out.trimmed();
}

bool setDefaultSink(const QString &name)
{
    return run(QStringLiteral("pactl"), {QStringLiteral("set-default-sink"), name}).ok();
}

bool setDefaultSource(const QString &name)
{
    return run(QStringLiteral("pactl"), {QStringLiteral("set-default-source"), name}).ok();
}

bool waitForDefaultSink(const QString &name, int timeoutMs)
{
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < timeoutMs) {
        if (defaultSink() == name)
            return true;
        QThread::msleep(50);
    }
    return false;
}

namespace {
CommandResult soundServerScript(const QString &command)
{
    const QString script = qEnvironmentVariable("KETTERBLOOM_SOURCE_DIR") + QStringLiteral("/tests/support/soundserver.sh");
    return run(QStringLiteral("bash"), {script, command, qEnvironmentVariable("KETTERBLOOM_SOUNDSERVER_DIR")}, 30000);
}
} // namespace

bool stopSoundServer()
{
    const CommandResult r = soundServerScript(QStringLiteral("pause"));
    if (!r.ok())
        qWarning("soundserver pause: %s", qPrintable(r.err));
    return r.ok();
}

bool startSoundServerAgain()
{
    const CommandResult r = soundServerScript(QStringLiteral("resume"));
    if (!r.ok())
        qWarning("soundserver resume: %s", qPrintable(r.err));
    return r.ok();
}

ServerModules::~ServerModules()
{
    unloadAll();
}

int ServerModules::load(const QString &module, const QStringList &args)
{
    const auto r = run(QStringLiteral("pactl"), QStringList{QStringLiteral("load-module"), module} + args);
    if (!r.ok())
        return -1;
    bool ok = false;
    const int index = r.out.trimmed().toInt(&ok);
    if (!ok)
        return -1;
    m_modules.push_back(index);
    return index;
}

int ServerModules::nullSink(const QString &name, int channels, const QString &description)
{
    QStringList args{QStringLiteral("sink_name=") + name, QStringLiteral("rate=48000"),
                     QStringLiteral("format=float32le"), QStringLiteral("channels=") + QString::number(channels)};
    if (channels == 2)
        args << QStringLiteral("channel_map=front-left,front-right");
    if (!description.isEmpty())
        args << QStringLiteral("sink_properties=device.description=") + description;
    return load(QStringLiteral("module-null-sink"), args);
}

bool ServerModules::virtualMic(const QString &source, const QString &description)
{
    if (nullSink(source + QStringLiteral("_feed"), 1) < 0)
        return false;
    return load(QStringLiteral("module-remap-source"),
                {QStringLiteral("source_name=") + source,
                 QStringLiteral("master=") + source + QStringLiteral("_feed.monitor"),
                 QStringLiteral("source_properties=device.description=") + description})
        >= 0;
}

bool ServerModules::twoChannelDevice(const QString &source, const QString &description)
{
    if (nullSink(source + QStringLiteral("_feed"), 2) < 0)
        return false;
    return load(QStringLiteral("module-remap-source"),
                {QStringLiteral("source_name=") + source,
                 QStringLiteral("master=") + source + QStringLiteral("_feed.monitor"),
                 QStringLiteral("channels=2"), QStringLiteral("master_channel_map=front-left,front-right"),
                 QStringLiteral("channel_map=aux0,aux1"), QStringLiteral("remix=no"),
                 QStringLiteral("source_properties=device.description=") + description})
        >= 0;
}

bool ServerModules::unload(int index)
{
    const auto it = std::find(m_modules.begin(), m_modules.end(), index);
    if (it == m_modules.end())
        return false;
    m_modules.erase(it);
    return run(QStringLiteral("pactl"), {QStringLiteral("unload-module"), QString::number(index)}).ok();
}

void ServerModules::unloadAll()
{
    for (auto it = m_modules.rbegin(); it != m_modules.rend(); ++it)
        run(QStringLiteral("pactl"), {QStringLiteral("unload-module"), QString::number(*it)});
    m_modules.clear();
}

std::unique_ptr<Player> Player::start(const QString &wav, const QString &device, const QStringList &properties, Kind kind)
{
    std::unique_ptr<Player> player(new Player);
    player->m_process = std::make_unique<QProcess>();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    QStringList args;
    QString program;
    if (kind == Kind::paplay) {
        program = QStringLiteral("paplay");
        if (!device.isEmpty())
            args << QStringLiteral("--device=") + device;
        args << QStringLiteral("--latency-msec=20");
        // Client properties reach both the client and its stream.
        if (!properties.isEmpty())
            env.insert(QStringLiteral("PULSE_PROP"), properties.join(QLatin1Char(' ')));
    } else {
        program = QStringLiteral("pw-play");
        if (!device.isEmpty())
            args << QStringLiteral("--target=") + device;
        for (const QString &p : properties)
            args << QStringLiteral("-P") << QStringLiteral("{ ") + QString(p).replace(QLatin1Char('='), QStringLiteral(" = \"")) + QStringLiteral("\" }");
    }
    args << wav;
    player->m_process->setProcessEnvironment(env);
    player->m_process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    player->m_process->start(program, args);
    if (!player->m_process->waitForStarted(5000))
        return nullptr;
    return player;
}

Player::~Player()
{
    stop();
}

void Player::stop()
{
    if (m_process && m_process->state() != QProcess::NotRunning) {
        m_process->terminate();
        if (!m_process->waitForFinished(2000)) {
            m_process->kill();
            m_process->waitForFinished(2000);
        }
    }
}

bool Player::isRunning() const
{
    return m_process && m_process->state() == QProcess::Running;
}

qint64 Player::pid() const
{
    return m_process ? m_process->processId() : 0;
}

std::unique_ptr<Player> keepSinkAwake(const QString &sink, const QString &silenceWav)
{
    return Player::start(silenceWav, sink);
}

std::unique_ptr<Player> settleNewSink(const QString &sink, const QString &silenceWav)
{
    if (isPipeWire())
        return nullptr;
    auto player = keepSinkAwake(sink, silenceWav);
    const QString index = run(QStringLiteral("pactl"), {QStringLiteral("list"), QStringLiteral("short"),
                                                        QStringLiteral("sinks")})
                              .out.split(QLatin1Char('\n'))
                              .filter(QRegularExpression(QStringLiteral("^\\d+\\s+") + QRegularExpression::escape(sink)
                                                         + QStringLiteral("\\s")))
                              .value(0)
                              .section(QLatin1Char('\t'), 0, 0);
    // Wait until the player's stream plays into the sink, then suspend and resume the sink.
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < 5000) {
        const QStringList inputs = run(QStringLiteral("pactl"), {QStringLiteral("list"), QStringLiteral("short"),
                                                                 QStringLiteral("sink-inputs")})
                                       .out.split(QLatin1Char('\n'));
        bool playing = false;
        for (const QString &line : inputs)
            playing = playing || (!index.isEmpty() && line.section(QLatin1Char('\t'), 1, 1) == index);
        if (playing)
            break;
        QThread::msleep(20);
    }
    run(QStringLiteral("pactl"), {QStringLiteral("suspend-sink"), sink, QStringLiteral("1")});
    run(QStringLiteral("pactl"), {QStringLiteral("suspend-sink"), sink, QStringLiteral("0")});
    return player;
}

} // namespace kbtest
