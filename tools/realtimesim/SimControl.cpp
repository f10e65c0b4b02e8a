#include "realtimesim/SimControl.h"

#include "realtimesim/RealtimeSimulator.h"

#include <QCoreApplication>
#include <QJsonDocument>

#include <unistd.h>

namespace {

QByteArray recordLine(const SimRecord &record)
{
    QJsonObject line{{"connection", record.connection}, {"type", record.type}, {"message", record.message}};
    return QJsonDocument(line).toJson(QJsonDocument::Compact);
}

} // namespace

SimControl::SimControl(RealtimeSimulator *simulator, QObject *parent)
    : QObject(parent), m_simulator(simulator), m_out(stdout)
{
    connect(simulator, &RealtimeSimulator::recorded, this, &SimControl::onRecord);
    connect(simulator, &RealtimeSimulator::connectionOpened, this, [this](int index) {
        const SimConnectionInfo info = m_simulator->connections().value(index - 1);
        reply(QStringLiteral("event connection-opened %1 model=%2 authorization=%3 interface=%4")
                  .arg(index)
                  .arg(info.model, info.authorization, info.beta ? QStringLiteral("beta") : QStringLiteral("ga")));
    });
    connect(simulator, &RealtimeSimulator::connectionClosed, this,
            [this](int index) { reply(QStringLiteral("event connection-closed %1").arg(index)); });
}

bool SimControl::setRecordsFile(const QString &path)
{
    m_records.setFileName(path);
    return m_records.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text);
}

void SimControl::listenOnStdin()
{
    m_notifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &SimControl::readStdin);
}

void SimControl::readStdin()
{
    char chunk[4096];
    const ssize_t n = ::read(STDIN_FILENO, chunk, sizeof chunk);
    if (n <= 0) {
        // Standard input closed: keep serving until killed, but stop watching it.
        m_notifier->setEnabled(false);
        return;
    }
    m_buffer.append(chunk, n);
    qsizetype newline;
    while ((newline = m_buffer.indexOf('\n')) >= 0) {
        const QString line = QString::fromUtf8(m_buffer.left(newline)).trimmed();
        m_buffer.remove(0, newline + 1);
        if (!line.isEmpty())
            reply(execute(line));
    }
}

QString SimControl::execute(const QString &line)
{
    const QString command = line.section(QLatin1Char(' '), 0, 0);
    const QString rest = line.section(QLatin1Char(' '), 1).trimmed();
    auto result = [](bool done) { return done ? QStringLiteral("ok") : QStringLiteral("error: no open connection"); };

    if (command == QLatin1String("turn"))
        return result(m_simulator->triggerTurn(rest));
    if (command == QLatin1String("close")) {
        bool valid = false;
        const int code = rest.section(QLatin1Char(' '), 0, 0).toInt(&valid);
        if (!valid)
            return QStringLiteral("error: usage: close <code> [reason]");
        return result(m_simulator->closeConnection(code, rest.section(QLatin1Char(' '), 1)));
    }
    if (command == QLatin1String("drop"))
        return result(m_simulator->dropConnection());
    if (command == QLatin1String("freeze"))
        return result(m_simulator->freeze());
    if (command == QLatin1String("malformed"))
        return result(m_simulator->sendMalformed());
    if (command == QLatin1String("error")) {
        const QString code = rest.section(QLatin1Char(' '), 0, 0);
        if (code.isEmpty())
            return QStringLiteral("error: usage: error <code> [message]");
        return result(m_simulator->sendError(code, rest.section(QLatin1Char(' '), 1)));
    }
    if (command == QLatin1String("quota"))
        return result(m_simulator->sendInsufficientQuota());
    if (command == QLatin1String("expire"))
        return result(m_simulator->expireSession());
    if (command == QLatin1String("send"))
        return result(m_simulator->sendText(rest));
    if (command == QLatin1String("reject-current-shape")) {
        m_simulator->setRejectCurrentShape(rest != QLatin1String("off"));
        return QStringLiteral("ok");
    }
    if (command == QLatin1String("realistic")) {
        m_simulator->setRealistic(rest != QLatin1String("off"));
        return QStringLiteral("ok");
    }
    if (command == QLatin1String("withhold-session-created")) {
        bool valid = false;
        const int count = rest.toInt(&valid);
        if (!valid || count < -1)
            return QStringLiteral("error: usage: withhold-session-created <n, -1 for all>");
        m_simulator->setWithholdSessionCreated(count);
        return QStringLiteral("ok");
    }
    if (command == QLatin1String("status")) {
        return QStringLiteral("status connections=%1 open=%2 records=%3")
            .arg(m_simulator->connectionCount())
            .arg(m_simulator->openConnectionCount())
            .arg(m_simulator->records().size());
    }
    if (command == QLatin1String("records")) {
        for (const SimRecord &record : m_simulator->records())
            reply(QStringLiteral("record ") + QString::fromUtf8(recordLine(record)));
        return QStringLiteral("ok");
    }
    if (command == QLatin1String("quit")) {
        QCoreApplication::quit();
        return QStringLiteral("ok");
    }
    return QStringLiteral("error: unknown command \"%1\"").arg(command);
}

void SimControl::onRecord(const SimRecord &record)
{
    const QByteArray line = recordLine(record);
    if (m_records.isOpen()) {
        m_records.write(line + '\n');
        m_records.flush();
    }
    if (m_echo)
        reply(QStringLiteral("record ") + QString::fromUtf8(line));
}

void SimControl::reply(const QString &text)
{
    m_out << text << Qt::endl;
}
