#include "realtimesim/SimAudioTranscriptions.h"

#include "realtimesim/RealtimeSimulator.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QtEndian>

#include <cmath>
#include <optional>

namespace {

struct FormField
{
    QByteArray name;
    QByteArray filename;
    QByteArray contentType;
    QByteArray body;
};

// The fields of a multipart/form-data body; none when it is not one.
std::optional<QList<FormField>> formFields(const QByteArray &body, const QByteArray &boundary)
{
    const QByteArray delimiter = "--" + boundary;
    qsizetype position = body.indexOf(delimiter);
    if (position < 0)
        return std::nullopt;
    QList<FormField> fields;
    for (;;) {
        position += delimiter.size();
        if (body.mid(position, 2) == "--")
            return fields; // the closing delimiter
        if (body.mid(position, 2) != "\r\n")
            return std::nullopt;
        position += 2;
        const qsizetype headersEnd = body.indexOf("\r\n\r\n", position);
        const qsizetype next = body.indexOf("\r\n" + delimiter, position);
        if (headersEnd < 0 || next < 0 || headersEnd > next)
            return std::nullopt;
        FormField field;
        for (const QByteArray &line : body.mid(position, headersEnd - position).split('\n')) {
            const qsizetype colon = line.indexOf(':');
            if (colon <= 0)
                continue;
            const QByteArray name = line.left(colon).trimmed().toLower();
            const QByteArray value = line.mid(colon + 1).trimmed();
            if (name == "content-type") {
                field.contentType = value;
            } else if (name == "content-disposition") {
                static const QRegularExpression nameRx(QStringLiteral(R"rx((?:^|;)\s*name="([^"]*)")rx"));
                static const QRegularExpression fileRx(QStringLiteral(R"rx(;\s*filename="([^"]*)")rx"));
                field.name = nameRx.match(QString::fromUtf8(value)).captured(1).toUtf8();
                field.filename = fileRx.match(QString::fromUtf8(value)).captured(1).toUtf8();
            }
        }
        field.body = body.mid(headersEnd + 4, next - headersEnd - 4);
        fields.append(field);
        position = next + 2;
    }
}

// What a WAV file holds; `seconds` < 0 when it is not a WAV that can be read.
struct WavFacts
{
    int format = 0;
    int channels = 0;
    int sampleRate = 0;
    int bits = 0;
    double seconds = -1;
};

WavFacts wavFacts(const QByteArray &file)
{
    WavFacts facts;
    if (file.size() < 12 || !file.startsWith("RIFF") || file.mid(8, 4) != "WAVE")
        return facts;
    const auto *bytes = reinterpret_cast<const uchar *>(file.constData());
    qsizetype position = 12;
    bool haveFormat = false;
    while (position + 8 <= file.size()) {
        const QByteArray id = file.mid(position, 4);
        const quint32 size = qFromLittleEndian<quint32>(bytes + position + 4);
        const qsizetype content = position + 8;
        if (id == "fmt " && size >= 16 && content + 16 <= file.size()) {
            facts.format = qFromLittleEndian<quint16>(bytes + content);
            facts.channels = qFromLittleEndian<quint16>(bytes + content + 2);
            facts.sampleRate = int(qFromLittleEndian<quint32>(bytes + content + 4));
            facts.bits = qFromLittleEndian<quint16>(bytes + content + 14);
            haveFormat = true;
        } else if (id == "data" && haveFormat) {
            const int frameBytes = facts.channels * facts.bits / 8;
            if ((facts.format != 1 && facts.format != 3) || frameBytes <= 0 || facts.sampleRate <= 0)
                return facts;
            const qsizetype available = std::min<qsizetype>(size, file.size() - content);
            facts.seconds = double(available / frameBytes) / facts.sampleRate;
            return facts;
        }
        position = content + size + (size & 1);
    }
    return facts;
}

QString masked(const QString &key)
{
    if (key.size() < 8)
        return QString(key.size(), QLatin1Char('*'));
    return key.left(3) + QString(key.size() - 7, QLatin1Char('*')) + key.right(4);
}

QJsonValue orNull(const QString &value)
{
    return value.isEmpty() ? QJsonValue() : QJsonValue(value);
}

} // namespace

SimAudioTranscriptions::SimAudioTranscriptions(RealtimeSimulator *simulator)
    : m_simulator(simulator)
{
}

SimHttpResponse SimAudioTranscriptions::error(int status, const QString &message, const QString &type,
                                              const QString &code, const QString &param)
{
    const QJsonObject details{{"message", message}, {"type", type}, {"param", orNull(param)}, {"code", orNull(code)}};
    SimHttpResponse response;
    response.status = status;
    response.body = QJsonDocument(QJsonObject{{"error", details}}).toJson(QJsonDocument::Indented);
    return response;
}

SimHttpResponse SimAudioTranscriptions::answer(const SimHttpRequest &request)
{
    const QString target = QString::fromUtf8(request.target);
    const QString requestPath = target.section(QLatin1Char('?'), 0, 0);
    QJsonObject record{{"method", QString::fromLatin1(request.method)}, {"path", requestPath}};
    const SimHttpResponse response = check(request, record);
    record.insert("status", response.status);
    SimRecord entry;
    entry.type = QString::fromLatin1(request.method) + QLatin1Char(' ') + requestPath;
    entry.message = record;
    m_simulator->record(entry);
    return response;
}

SimHttpResponse SimAudioTranscriptions::check(const SimHttpRequest &request, QJsonObject &record)
{
    const QString requestPath = record.value("path").toString();
    if (request.method != "POST" || requestPath != QLatin1String(path))
        return error(404, QStringLiteral("Invalid URL (%1 %2)").arg(QString::fromLatin1(request.method), requestPath));

    // The key, as the service checks it: never kept.
    const QByteArray authorization = request.header("authorization");
    const QString key = QString::fromUtf8(authorization).section(QLatin1Char(' '), 1).trimmed();
    const QString &expected = m_simulator->script().apiKey;
    if (authorization.isEmpty() || !authorization.startsWith("Bearer ") || key.isEmpty()) {
        record.insert("authorization", authorization.isEmpty() ? "missing" : "invalid");
        return error(401, QStringLiteral("You didn't provide an API key. You need to provide your API key in an "
                                         "Authorization header using Bearer auth (i.e. Authorization: Bearer YOUR_KEY)."));
    }
    if (!expected.isEmpty() && key != expected) {
        record.insert("authorization", "invalid");
        return error(401, QStringLiteral("Incorrect API key provided: %1. You can find your API key at "
                                         "https://platform.openai.com/account/api-keys.").arg(masked(key)),
                     QStringLiteral("invalid_request_error"), QStringLiteral("invalid_api_key"));
    }
    record.insert("authorization", "valid");

    const QByteArray contentType = request.header("content-type");
    record.insert("content_type", QString::fromLatin1(contentType.split(';').first().trimmed()));
    static const QRegularExpression boundaryRx(QStringLiteral(R"rx(;\s*boundary=("?)([^";]+)\1)rx"));
    const QRegularExpressionMatch boundary = boundaryRx.match(QString::fromLatin1(contentType));
    if (!contentType.toLower().startsWith("multipart/form-data") || !boundary.hasMatch())
        return error(400, QStringLiteral("Invalid Content-Type header (%1), expected multipart/form-data.")
                              .arg(QString::fromLatin1(contentType)));
    const std::optional<QList<FormField>> fields = formFields(request.body, boundary.captured(2).toLatin1());
    if (!fields)
        return error(400, QStringLiteral("Could not parse multipart form"));

    QJsonArray names;
    const FormField *file = nullptr;
    QString model, format, language;
    for (const FormField &field : *fields) {
        names.append(QString::fromUtf8(field.name));
        if (field.name == "file")
            file = &field;
        else if (field.name == "model")
            model = QString::fromUtf8(field.body).trimmed();
        else if (field.name == "response_format")
            format = QString::fromUtf8(field.body).trimmed();
        else if (field.name == "language")
            language = QString::fromUtf8(field.body).trimmed();
    }
    record.insert("fields", names);
    record.insert("model", model);
    record.insert("response_format", format);
    record.insert("language", language);
    if (model.isEmpty())
        return error(400, QStringLiteral("you must provide a model parameter"));
    if (!file)
        return error(400, QStringLiteral("Missing required parameter: 'file'."), QStringLiteral("invalid_request_error"),
                     QStringLiteral("missing_required_parameter"), QStringLiteral("file"));
    const WavFacts wav = wavFacts(file->body);
    record.insert("file", QJsonObject{{"filename", QString::fromUtf8(file->filename)},
                                      {"content_type", QString::fromLatin1(file->contentType)},
                                      {"bytes", qint64(file->body.size())},
                                      {"sample_rate", wav.sampleRate},
                                      {"channels", wav.channels},
                                      {"bits", wav.bits},
                                      {"seconds", wav.seconds}});
    if (format.isEmpty())
        format = QStringLiteral("json");
    const bool whisper = model == QLatin1String("whisper-1");
    if (format != QLatin1String("json") && format != QLatin1String("text")) {
        if (!whisper || !QStringList{"srt", "verbose_json", "vtt"}.contains(format))
            return error(400, QStringLiteral("response_format '%1' is not compatible with model '%2'. Use 'json' or 'text'.")
                                  .arg(format, model),
                         QStringLiteral("invalid_request_error"), QStringLiteral("unsupported_value"),
                         QStringLiteral("response_format"));
        return error(400, QStringLiteral("The simulator answers only the 'json' and 'text' formats."));
    }
    static const QRegularExpression iso639(QStringLiteral("^[a-z]{2}$"));
    if (!language.isEmpty() && !iso639.match(language).hasMatch())
        return error(400, QStringLiteral("Invalid language '%1'. The language must be an ISO-639-1 code.")
                              .arg(language),
                     QStringLiteral("invalid_request_error"), QStringLiteral("invalid_language_format"),
                     QStringLiteral("language"));
    if (!QString::fromUtf8(file->filename).contains(QLatin1Char('.')) || wav.seconds < 0)
        return error(400, QStringLiteral("Invalid file format. Supported formats: ['flac', 'm4a', 'mp3', 'mp4', 'mpeg', "
                                         "'mpga', 'oga', 'ogg', 'wav', 'webm']"),
                     QStringLiteral("invalid_request_error"), QStringLiteral("invalid_value"), QStringLiteral("file"));
    if (wav.seconds < 0.1)
        return error(400, QStringLiteral("Audio file is too short. Minimum audio length is 0.1 seconds."),
                     QStringLiteral("invalid_request_error"), QStringLiteral("audio_too_short"), QStringLiteral("file"));

    const SimAudioTranscription step = m_simulator->nextAudioTranscription();
    SimHttpResponse response;
    if (step.status != 200) {
        QString type = step.errorType, code = step.errorCode, message = step.message;
        if (step.status == 429 && code.isEmpty())
            code = QStringLiteral("rate_limit_exceeded");
        if (code == QLatin1String("insufficient_quota")) {
            type = type.isEmpty() ? code : type;
            if (message.isEmpty())
                message = QStringLiteral("You exceeded your current quota, please check your plan and billing details.");
        } else if (code == QLatin1String("rate_limit_exceeded")) {
            type = type.isEmpty() ? QStringLiteral("requests") : type;
            if (message.isEmpty())
                message = QStringLiteral("Rate limit reached for %1 on requests per min (RPM). Please try again in 1s.").arg(model);
        } else if (step.status >= 500) {
            type = type.isEmpty() ? QStringLiteral("server_error") : type;
            if (message.isEmpty())
                message = QStringLiteral("The server had an error while processing your request. Sorry about that!");
        }
        response = error(step.status, message.isEmpty() ? QStringLiteral("The request failed.") : message,
                         type.isEmpty() ? QStringLiteral("invalid_request_error") : type, code);
        if (step.retryAfter >= 0)
            response.headers.append(qMakePair(QByteArray("retry-after"), QByteArray::number(step.retryAfter)));
    } else {
        const QString text = step.text.isEmpty() ? m_simulator->nextTranscriptionText() : step.text;
        record.insert("text", text);
        QJsonObject usage;
        if (whisper) {
            usage = {{"type", "duration"}, {"seconds", int(std::ceil(wav.seconds))}};
        } else {
            // About one audio token per 100 ms, and 4 text tokens per 3 words.
            const int audioTokens = int(std::ceil(wav.seconds * 10));
            const qsizetype words = text.simplified().isEmpty() ? 0 : text.simplified().count(QLatin1Char(' ')) + 1;
            const int outputTokens = int(std::ceil(double(words) * 4 / 3.0));
            usage = {{"type", "tokens"}, {"input_tokens", audioTokens},
                     {"input_token_details", QJsonObject{{"text_tokens", 0}, {"audio_tokens", audioTokens}}},
                     {"output_tokens", outputTokens}, {"total_tokens", audioTokens + outputTokens}};
        }
        if (format == QLatin1String("text")) {
            response.headers.append(qMakePair(QByteArray("Content-Type"), QByteArray("text/plain; charset=utf-8")));
            response.body = text.toUtf8() + '\n';
        } else {
            response.body = QJsonDocument(QJsonObject{{"text", text}, {"usage", usage}}).toJson(QJsonDocument::Indented);
        }
    }
    response.delayMs = step.delayMs;
    return response;
}
