#include "realtimesim/SimConnection.h"

#include "realtimesim/RealtimeSimulator.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QUrlQuery>
#include <QWebSocket>

#include <memory>

namespace {

const QStringList kCurrentKeys = {"type", "model", "output_modalities", "instructions", "audio", "tools",
                                  "tool_choice", "max_output_tokens", "prompt", "include", "tracing", "truncation"};
const QStringList kLegacyKeys = {"modalities", "instructions", "input_audio_format", "input_audio_transcription",
                                 "turn_detection", "voice", "tools", "tool_choice", "temperature",
                                 "max_response_output_tokens", "output_audio_format", "input_audio_noise_reduction"};

QString checkTurnDetection(const QJsonValue &value, const QString &path)
{
    const QJsonObject td = value.toObject();
    if (!value.isObject() || td.value("type").toString() != QLatin1String("server_vad"))
        return path + ".type";
    const QJsonValue threshold = td.value("threshold");
    if (!threshold.isDouble() || threshold.toDouble() < 0 || threshold.toDouble() > 1)
        return path + ".threshold";
    for (const char *key : {"prefix_padding_ms", "silence_duration_ms"})
        if (!td.value(key).isDouble() || td.value(key).toDouble() < 0)
            return path + "." + key;
    return {};
}

} // namespace

SimConnection::SimConnection(RealtimeSimulator *simulator, QWebSocket *socket, QTcpSocket *tcp, int index)
    : QObject(simulator), m_simulator(simulator), m_socket(socket), m_tcp(tcp)
{
    socket->setParent(this);
    for (Lane *lane : {&m_main, &m_side}) {
        lane->timer = new QTimer(this);
        lane->timer->setSingleShot(true);
        connect(lane->timer, &QTimer::timeout, this, [this, lane] { runNextStep(*lane); });
    }

    const QNetworkRequest request = socket->request();
    m_info.index = index;
    m_info.path = request.url().path();
    m_info.model = QUrlQuery(request.url()).queryItemValue(QStringLiteral("model"));
    m_info.intent = QUrlQuery(request.url()).queryItemValue(QStringLiteral("intent"));
    m_info.beta = request.rawHeader("OpenAI-Beta") == "realtime=v1";
    const QByteArray authorization = request.rawHeader("Authorization");
    if (authorization.isEmpty()) {
        m_info.authorization = QStringLiteral("missing");
    } else {
        const QString key = QString::fromUtf8(authorization).section(QLatin1Char(' '), 1);
        const bool bearer = authorization.startsWith("Bearer ") && !key.trimmed().isEmpty();
        const QString &expected = simulator->script().apiKey;
        m_info.authorization = bearer && (expected.isEmpty() || key == expected) ? QStringLiteral("valid")
                                                                                  : QStringLiteral("invalid");
    }

    connect(socket, &QWebSocket::textMessageReceived, this, &SimConnection::handleMessage);
    connect(socket, &QWebSocket::binaryMessageReceived, this,
            [this](const QByteArray &data) { handleMessage(QString::fromUtf8(data)); });
    connect(socket, &QWebSocket::disconnected, this, &SimConnection::markClosed);

    if (m_info.path != QLatin1String("/v1/realtime")) {
        socket->close(QWebSocketProtocol::CloseCodePolicyViolated, QStringLiteral("not found"));
        return;
    }
    if (m_info.authorization != QLatin1String("valid")) {
        if (script().realistic) {
            // What the service does with a bad key.
            socket->close(QWebSocketProtocol::CloseCode(3000), QStringLiteral("invalid_request_error.invalid_api_key"));
            return;
        }
        // The simpler mode leaves the socket open and unconfigured.
        sendError(QStringLiteral("invalid_api_key"), QStringLiteral("Incorrect API key provided."));
        return;
    }
    if (m_info.intent == QLatin1String("transcription")) {
        m_transcription = std::make_unique<SimTranscriptionSession>(
            [this](const QJsonObject &event) { sendEvent(event); }, [this](const char *prefix) { return nextId(prefix); },
            [simulator] { return simulator->nextTranscriptionText(); });
        sendEvent(m_transcription->created());
        return;
    }
    if (m_info.model.isEmpty()) {
        sendError(QStringLiteral("missing_model"), QStringLiteral("Missing required parameter: 'model'."), "model");
        return;
    }
    if (simulator->withholdsSessionCreated(index))
        return;
    sendEvent({{"type", "session.created"},
               {"session", QJsonObject{{"id", nextId("sess")}, {"object", "realtime.session"}, {"model", m_info.model}}}});
}

SimConnection::~SimConnection() = default;

QString SimConnection::nextId(const char *prefix)
{
    return QStringLiteral("%1_%2_%3").arg(QLatin1String(prefix)).arg(m_info.index).arg(++m_counter);
}

const SimScript &SimConnection::script() const
{
    return m_simulator->script();
}

void SimConnection::markClosed()
{
    if (!m_info.open)
        return;
    m_info.open = false;
    for (Lane *lane : {&m_main, &m_side}) {
        lane->steps.clear();
        lane->timer->stop();
    }
    emit closed();
}

// MARK: - Incoming

void SimConnection::handleMessage(const QString &text)
{
    if (m_frozen)
        return;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
    QJsonObject message = document.object();
    const QString type = message.value("type").toString();

    SimRecord record{m_info.index, type, message};
    if (type == QLatin1String("input_audio_buffer.append")) {
        record.message.remove("audio");
        record.message.insert("audio_bytes", QByteArray::fromBase64(message.value("audio").toString().toLatin1()).size());
    }
    if (!document.isObject())
        record.message = QJsonObject{{"raw_bytes", int(text.toUtf8().size())}};
    m_simulator->record(record);

    if (m_transcription && document.isObject() && m_transcription->handle(type, message))
        return;
    if (!document.isObject() || type.isEmpty()) {
        sendError(QStringLiteral("invalid_json"), QStringLiteral("The server could not parse the message as JSON."));
    } else if (type == QLatin1String("session.update")) {
        handleSessionUpdate(message);
    } else if (type == QLatin1String("input_audio_buffer.append")) {
        handleAppend(message);
    } else if (type == QLatin1String("conversation.item.create")) {
        handleItemCreate(message);
    } else if (type == QLatin1String("response.create")) {
        handleResponseCreate();
    } else if (type == QLatin1String("response.cancel")) {
        handleCancel();
    } else {
        sendError(QStringLiteral("invalid_value"),
                  QStringLiteral("Invalid value: '%1'. Supported values are: 'session.update', "
                                 "'input_audio_buffer.append', 'conversation.item.create', "
                                 "'response.create' and 'response.cancel'.").arg(type), "type");
    }
}

void SimConnection::handleSessionUpdate(const QJsonObject &message)
{
    const QJsonObject session = message.value("session").toObject();
    const bool current = session.contains("type");
    if (!checkSessionShape(session, current))
        return;
    const QJsonObject input = session.value("audio").toObject().value("input").toObject();
    const QJsonValue transcription = current ? input.value("transcription") : session.value("input_audio_transcription");
    const QString transcribeModel = transcription.toObject().value("model").toString();
    if (!transcribeModel.isEmpty() && script().effectiveRefusedTranscribeModels().contains(transcribeModel)) {
        const QString param = current ? QStringLiteral("session.audio.input.transcription.model")
                                      : QStringLiteral("session.input_audio_transcription.model");
        sendError(QStringLiteral("invalid_value"),
                  QStringLiteral("Invalid value: '%1'. This model is not supported for transcription in "
                                 "realtime sessions.").arg(transcribeModel), param);
        return;
    }
    const QJsonObject turnDetection = (current ? input : session).value("turn_detection").toObject();
    m_vad.configure(turnDetection.value("threshold").toDouble(), turnDetection.value("prefix_padding_ms").toInt(),
                    turnDetection.value("silence_duration_ms").toInt());
    m_session = session;
    m_configured = true;
    QJsonObject echoed = session;
    echoed.insert("id", nextId("sess"));
    sendEvent({{"type", "session.updated"}, {"session", echoed}});
    if (script().insufficientQuotaAfterConfiguration && !std::exchange(m_quotaSent, true))
        applyFault(SimFault::of(SimFault::Kind::insufficientQuota));
}

// Whether the session object may be used; when not, the error has been sent.
bool SimConnection::checkSessionShape(const QJsonObject &session, bool current)
{
    // The service speaks the legacy shape only on its beta interface, and the current one only
    // on the other. The simpler mode takes either anywhere.
    if (script().realistic && current == m_info.beta) {
        const QString key = current || session.isEmpty() ? QStringLiteral("type")
                            : session.contains("modalities") ? QStringLiteral("modalities") : session.keys().first();
        sendError(QStringLiteral("unknown_parameter"), QStringLiteral("Unknown parameter: 'session.%1'.").arg(key),
                  "session." + key);
        return false;
    }
    if (current && script().rejectCurrentShape) {
        sendError(QStringLiteral("unknown_parameter"), QStringLiteral("Unknown parameter: 'session.type'."), "session.type");
        return false;
    }
    const QStringList &allowed = current ? kCurrentKeys : kLegacyKeys;
    for (auto it = session.constBegin(); it != session.constEnd(); ++it) {
        if (!allowed.contains(it.key())) {
            sendError(QStringLiteral("unknown_parameter"), QStringLiteral("Unknown parameter: 'session.%1'.").arg(it.key()),
                      "session." + it.key());
            return false;
        }
    }
    QString bad;
    if (current) {
        const QJsonObject input = session.value("audio").toObject().value("input").toObject();
        const QJsonObject format = input.value("format").toObject();
        if (session.value("type").toString() != QLatin1String("realtime"))
            bad = "session.type";
        else if (format.value("type").toString() != QLatin1String("audio/pcm") || format.value("rate").toInt() != 24000)
            bad = "session.audio.input.format";
        else if (!input.value("transcription").toObject().value("model").isString())
            bad = "session.audio.input.transcription.model";
        else
            bad = checkTurnDetection(input.value("turn_detection"), "session.audio.input.turn_detection");
    } else {
        if (session.contains("input_audio_format") && session.value("input_audio_format").toString() != QLatin1String("pcm16"))
            bad = "session.input_audio_format";
        else
            bad = checkTurnDetection(session.value("turn_detection"), "session.turn_detection");
    }
    if (!bad.isEmpty()) {
        sendError(QStringLiteral("invalid_value"), QStringLiteral("Invalid value for '%1'.").arg(bad), bad);
        return false;
    }
    return true;
}

void SimConnection::handleAppend(const QJsonObject &message)
{
    const QJsonValue audio = message.value("audio");
    if (!audio.isString()) {
        sendError(QStringLiteral("missing_required_parameter"), QStringLiteral("Missing required parameter: 'audio'."), "audio");
        return;
    }
    const QByteArray pcm = QByteArray::fromBase64(audio.toString().toLatin1());
    for (const EnergyVad::Event &event : m_vad.feed(pcm)) {
        if (event.started) {
            m_speechItemID = nextId("item");
            sendEvent({{"type", "input_audio_buffer.speech_started"}, {"audio_start_ms", event.audioMs}, {"item_id", m_speechItemID}});
        } else {
            sendEvent({{"type", "input_audio_buffer.speech_stopped"}, {"audio_end_ms", event.audioMs}, {"item_id", m_speechItemID}});
            runTurn(m_simulator->nextTurn());
        }
    }
}

void SimConnection::handleItemCreate(const QJsonObject &message)
{
    const QJsonObject item = message.value("item").toObject();
    const QJsonArray content = item.value("content").toArray();
    const QString role = item.value("role").toString();
    const QString partType = content.first().toObject().value("type").toString();
    if (item.value("type").toString() != QLatin1String("message") || content.isEmpty()) {
        sendError(QStringLiteral("invalid_value"), QStringLiteral("Invalid value for 'item'."), "item");
        return;
    }
    // The realistic mode takes only the content type of the socket's interface.
    const QString wrongType = m_info.beta ? QStringLiteral("output_text") : QStringLiteral("text");
    if (role == QLatin1String("assistant") && script().realistic && partType == wrongType) {
        const QString supported = m_info.beta ? QStringLiteral("'text' and 'audio'") : QStringLiteral("'output_text' and 'output_audio'");
        sendError(QStringLiteral("invalid_value"),
                  QStringLiteral("Invalid value: '%1'. Supported values are: %2.").arg(partType, supported),
                  "item.content[0].type");
        return;
    }
    if (role == QLatin1String("assistant") && partType == QLatin1String("output_text") && script().rejectOutputText) {
        sendError(QStringLiteral("invalid_value"),
                  QStringLiteral("Invalid value: 'output_text'. Supported values are: 'text' and 'audio'."),
                  "item.content[0].type");
        return;
    }
    const bool userOk = role == QLatin1String("user") && partType == QLatin1String("input_text");
    const bool assistantOk = role == QLatin1String("assistant")
                             && (partType == QLatin1String("output_text") || partType == QLatin1String("text"));
    if (!userOk && !assistantOk) {
        sendError(QStringLiteral("invalid_value"), QStringLiteral("Invalid value: '%1'.").arg(partType), "item.content[0].type");
        return;
    }
    if (role == QLatin1String("user"))
        m_lastUserText = content.first().toObject().value("text").toString();
    QJsonObject created = item;
    created.insert("id", nextId("item"));
    sendEvent({{"type", "conversation.item.added"}, {"item", created}});
}

void SimConnection::handleResponseCreate()
{
    if (!m_activeResponseID.isEmpty()) {
        sendError(QStringLiteral("conversation_already_has_active_response"),
                  QStringLiteral("Conversation already has an active response in progress: %1. Wait until the "
                                 "response is finished before creating a new one.").arg(m_activeResponseID));
        return;
    }
    SimTurn turn;
    turn.answer = m_simulator->answerFor(m_lastUserText);
    m_responseBusy = true;
    startResponse(turn, {}, {});
}

void SimConnection::handleCancel()
{
    if (m_activeResponseID.isEmpty() || m_responseCancelled) {
        sendError(QStringLiteral("response_cancel_not_active"),
                  QStringLiteral("Cancellation failed: no active response found."));
        return;
    }
    m_responseCancelled = true;
    const QString id = m_activeResponseID;
    QTimer::singleShot(m_simulator->script().cancelDelayMs, this, [this, id] {
        if (m_activeResponseID == id && m_info.open && !m_frozen)
            finishResponse(QStringLiteral("cancelled"), {{"type", "cancelled"}, {"reason", "client_cancelled"}});
    });
}

// MARK: - Outgoing and faults

void SimConnection::sendEvent(QJsonObject event)
{
    if (!m_socket || !m_info.open || m_frozen)
        return;
    event.insert("event_id", nextId("event"));
    m_socket->sendTextMessage(QString::fromUtf8(QJsonDocument(event).toJson(QJsonDocument::Compact)));
}

void SimConnection::sendError(const QString &code, const QString &message, const QString &param, const QString &type)
{
    QJsonObject error{{"type", type}, {"code", code}, {"message", message}};
    error.insert("param", param.isEmpty() ? QJsonValue() : QJsonValue(param));
    sendEvent({{"type", "error"}, {"error", error}});
}

void SimConnection::sendText(const QString &text)
{
    if (m_socket && m_info.open && !m_frozen)
        m_socket->sendTextMessage(text);
}

void SimConnection::sendBinary(const QByteArray &data)
{
    if (m_socket && m_info.open && !m_frozen)
        m_socket->sendBinaryMessage(data);
}

void SimConnection::applyFault(const SimFault &fault)
{
    if (!m_socket || !m_info.open)
        return;
    switch (fault.kind) {
    case SimFault::Kind::none:
        break;
    case SimFault::Kind::close:
        m_socket->close(QWebSocketProtocol::CloseCode(fault.code), fault.reason);
        break;
    case SimFault::Kind::drop:
        m_frozen = false;
        if (m_tcp)
            m_tcp->blockSignals(false);
        m_socket->abort();
        markClosed();
        break;
    case SimFault::Kind::freeze:
        // Stop reading: the client's pings go unanswered and its messages unprocessed.
        m_frozen = true;
        m_main.timer->stop();
        m_side.timer->stop();
        if (m_tcp)
            m_tcp->blockSignals(true);
        break;
    case SimFault::Kind::malformed:
        sendText(QStringLiteral("{\"type\": \"response.output_text.delta\", \"delta\": \"unterminated"));
        break;
    case SimFault::Kind::error:
        sendError(fault.errorCode, fault.message);
        break;
    case SimFault::Kind::insufficientQuota:
        sendError(QStringLiteral("insufficient_quota"),
                  QStringLiteral("You exceeded your current quota, please check your plan and billing details."),
                  QString(), QStringLiteral("insufficient_quota"));
        break;
    case SimFault::Kind::sessionExpired:
        sendError(QStringLiteral("session_expired"),
                  QStringLiteral("Your session hit the maximum duration of 60 minutes."));
        m_socket->close(QWebSocketProtocol::CloseCodeNormal, QStringLiteral("session expired"));
        break;
    }
}
