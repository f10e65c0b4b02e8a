#include "realtime/RealtimeProtocol.h"

#include <QCoreApplication>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTextBoundaryFinder>
#include <QUrlQuery>

#include <algorithm>
#include <cmath>

namespace RealtimeProtocol {

QJsonObject turnDetection(const RealtimeConfig &config)
{
    // The settings keep these in range; this only makes sure that no value the service would
    // refuse (a non-finite threshold would even be written as null) can reach it.
    const RealtimeConfig defaults;
    const double threshold = std::isfinite(config.vadThreshold) ? std::clamp(config.vadThreshold, 0.0, 1.0)
                                                                : defaults.vadThreshold;
    return QJsonObject{
        {"type", "server_vad"},
        {"threshold", threshold},
        {"prefix_padding_ms", std::clamp(config.prefixPaddingMs, 0, 10000)},
        {"silence_duration_ms", std::clamp(config.silenceDurationMs, 0, 10000)},
        {"create_response", true},
        {"interrupt_response", false},
    };
}

QJsonObject transcription(const RealtimeConfig &config)
{
    QJsonObject object{{"model", config.transcribeModel}};
    if (!config.transcriptionLanguage.isEmpty())
        object.insert("language", config.transcriptionLanguage);
    return object;
}

QJsonObject session(const RealtimeConfig &config, bool legacy)
{
    if (legacy) {
        return QJsonObject{
            {"modalities", QJsonArray{"text"}},
            {"instructions", config.instructions},
            {"input_audio_format", "pcm16"},
            {"input_audio_transcription", transcription(config)},
            {"turn_detection", turnDetection(config)},
        };
    }
    const QJsonObject input{
        {"format", QJsonObject{{"type", "audio/pcm"}, {"rate", 24000}}},
        {"turn_detection", turnDetection(config)},
        {"transcription", transcription(config)},
    };
    return QJsonObject{
        {"type", "realtime"},
        {"model", config.model},
        {"output_modalities", QJsonArray{"text"}},
        {"instructions", config.instructions},
        {"audio", QJsonObject{{"input", input}}},
    };
}

QJsonObject sessionUpdate(const RealtimeConfig &config, bool legacy)
{
    return QJsonObject{{"type", "session.update"}, {"session", session(config, legacy)}};
}

static QJsonObject messageItem(const char *role, const char *partType, const QString &text)
{
    const QJsonObject part{{"type", QString::fromLatin1(partType)}, {"text", text}};
    return QJsonObject{
        {"type", "conversation.item.create"},
        {"item", QJsonObject{{"type", "message"}, {"role", role}, {"content", QJsonArray{part}}}},
    };
}

QJsonObject userItem(const QString &text)
{
    return messageItem("user", "input_text", text);
}

QJsonObject assistantItem(const QString &text, const QString &contentType)
{
    return messageItem("assistant", qPrintable(contentType), text);
}

QJsonObject audioAppend(const QByteArray &pcm16)
{
    return QJsonObject{{"type", "input_audio_buffer.append"},
                       {"audio", QString::fromLatin1(pcm16.toBase64())}};
}

QJsonObject typed(const char *type)
{
    return QJsonObject{{"type", QString::fromLatin1(type)}};
}

QByteArray serialize(const QJsonObject &message)
{
    return QJsonDocument(message).toJson(QJsonDocument::Compact);
}

int perceivedLength(const QString &text)
{
    if (text.isEmpty())
        return 0;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int count = 0;
    while (finder.toNextBoundary() != -1)
        ++count;
    return count;
}

History selectHistory(const History &history, int pairLimit, int charBudget)
{
    History selected;
    int remaining = charBudget;
    int looked = 0;
    for (auto it = history.crbegin(); it != history.crend() && looked < pairLimit; ++it, ++looked) {
        const int cost = perceivedLength(it->question) + perceivedLength(it->answer);
        if (cost >= remaining)
            break;
        remaining -= cost;
        selected.prepend(*it);
    }
    return selected;
}

int backoffSeconds(int attempt)
{
    if (attempt >= 5)
        return 20;
    return std::min(1 << std::max(attempt, 0), 20);
}

int cycleMinutes(int reconnectMinutes)
{
    return std::max(reconnectMinutes, 5);
}

QString endpointOverride()
{
    const QString value = qEnvironmentVariable(endpointVariable);
    return value.trimmed().isEmpty() ? QString() : value;
}

bool isLoopbackHost(const QString &host)
{
    if (host.compare(QLatin1String("localhost"), Qt::CaseInsensitive) == 0)
        return true;
    const QHostAddress address(host);
    return !address.isNull() && address.isLoopback();
}

Result<QUrl> resolveEndpoint(const QString &override, const QString &model)
{
    QUrl url(override.isNull() ? QString::fromLatin1(defaultEndpoint) : override.trimmed(),
             QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty() || (scheme != "ws" && scheme != "wss")) {
        return Result<QUrl>::failure(QCoreApplication::translate("RealtimeProtocol",
                                                                 "%1 is not a valid WebSocket URL (expected ws:// or "
                                                                 "wss://); the connection was not attempted.")
                                         .arg(QLatin1String(endpointVariable)));
    }
    if (scheme == "ws" && !isLoopbackHost(url.host())) {
        return Result<QUrl>::failure(QCoreApplication::translate("RealtimeProtocol",
                                                                 "%1 points to an unencrypted ws:// address on another "
                                                                 "machine; use wss:// or a loopback address. The "
                                                                 "connection was not attempted.")
                                         .arg(QLatin1String(endpointVariable)));
    }
    QUrlQuery query;
    query.addQueryItem(QStringLiteral("model"), model);
    url.setQuery(query);
    return url;
}

Result<QUrl> httpEndpoint(const QString &override, const QString &path)
{
    const Result<QUrl> endpoint = resolveEndpoint(override, QString());
    if (!endpoint.ok())
        return endpoint;
    QUrl url = endpoint.value();
    url.setScheme(url.scheme().compare(QLatin1String("wss"), Qt::CaseInsensitive) == 0 ? QStringLiteral("https")
                                                                                       : QStringLiteral("http"));
    url.setPath(path);
    url.setQuery(QString());
    return url;
}

} // namespace RealtimeProtocol
