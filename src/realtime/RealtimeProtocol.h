#pragma once

#include "common/Result.h"
#include "realtime/RealtimeTypes.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QUrl>

// The messages the client sends to the realtime service, and the pure rules behind them
// (endpoint, history selection, back-off, cycle period). Everything here is free of state and
// threads, so it can be checked without a socket.
namespace RealtimeProtocol {

inline constexpr int chunkBytes = 4800;
inline constexpr int historyPairLimit = 12;
inline constexpr int historyCharBudget = 8000;
inline constexpr auto defaultEndpoint = "wss://api.openai.com/v1/realtime";
inline constexpr auto endpointVariable = "KQ_REALTIME_URL";
// Sent on a socket that uses the legacy session shape and the "text" assistant content type:
// the service speaks them only on its beta interface.
inline constexpr auto betaHeaderName = "OpenAI-Beta";
inline constexpr auto betaHeaderValue = "realtime=v1";

// Each part of the session configuration has a builder of its own, shared by both shapes, so a
// new field goes into one place.
QJsonObject turnDetection(const RealtimeConfig &config);
// {"model": ...} for the meeting audio's transcription, plus "language" when the config names one.
QJsonObject transcription(const RealtimeConfig &config);
// The session object alone, in the current or the legacy shape.
QJsonObject session(const RealtimeConfig &config, bool legacy);
// {"type": "session.update", "session": session(config, legacy)}.
QJsonObject sessionUpdate(const RealtimeConfig &config, bool legacy);
QJsonObject userItem(const QString &text);
QJsonObject assistantItem(const QString &text, const QString &contentType);
QJsonObject audioAppend(const QByteArray &pcm16);
QJsonObject typed(const char *type);
QByteArray serialize(const QJsonObject &message);

// Characters as a reader counts them (grapheme clusters), not UTF-16 units or bytes.
int perceivedLength(const QString &text);
// The newest pairs that fit: at most `pairLimit`, and the walk from the newest backwards stops
// at the first pair whose question plus answer does not fit strictly inside what is left of
// the budget. Returned oldest first.
History selectHistory(const History &history, int pairLimit = historyPairLimit,
                      int charBudget = historyCharBudget);

// Delay before reconnect number `attempt` + 1 (attempt counts from 0): 1, 2, 4, 8, 16, 20, 20 ... s.
int backoffSeconds(int attempt);
// Minutes between deliberate session cycles: the configured value, but never below 5.
int cycleMinutes(int reconnectMinutes);

// The value of KQ_REALTIME_URL, or a null string when the variable is unset or blank.
QString endpointOverride();
// "localhost" or a loopback address: this computer, where plain ws:// and http:// are allowed.
bool isLoopbackHost(const QString &host);
// The address with the "model" query, or why it may not be used (the key must not be sent
// then). `override` is endpointOverride() (or a test's own value).
Result<QUrl> resolveEndpoint(const QString &override, const QString &model);
// The address of one of the service's HTTP paths (such as "/v1/models") on the host the realtime
// connection would use, by the same rules: wss://host/… gives https://host<path>, and ws:// (only
// ever on this computer) gives http://. No query.
Result<QUrl> httpEndpoint(const QString &override, const QString &path);

} // namespace RealtimeProtocol
