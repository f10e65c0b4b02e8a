#pragma once

#include <QList>
#include <QString>

// What the session hands the realtime client when a session starts. Every value is read
// from the settings at that moment.
struct RealtimeConfig
{
    QString apiKey;
    QString model;
    QString transcribeModel;
    QString instructions;
    double vadThreshold = 0.5;
    int prefixPaddingMs = 300;
    int silenceDurationMs = 500;
    int reconnectMinutes = 25;
    // ISO-639-1 language of the meeting speech, a hint for its transcription; empty = none.
    QString transcriptionLanguage;

    friend bool operator==(const RealtimeConfig &, const RealtimeConfig &) = default;
};

// The connection status the client reports. Equality compares the kind and, for `failed`,
// the message.
class RealtimeStatus
{
public:
    enum class Kind { failed, idle, connecting, connected, reconnecting };

    RealtimeStatus() = default;
    static RealtimeStatus idle() { return RealtimeStatus(Kind::idle); }
    static RealtimeStatus connecting() { return RealtimeStatus(Kind::connecting); }
    static RealtimeStatus connected() { return RealtimeStatus(Kind::connected); }
    static RealtimeStatus reconnecting() { return RealtimeStatus(Kind::reconnecting); }
    static RealtimeStatus failed(const QString &message) { return RealtimeStatus(Kind::failed, message); }

    Kind kind() const { return m_kind; }
    // The failure message; empty for every other kind.
    QString message() const { return m_message; }
    bool isFailed() const { return m_kind == Kind::failed; }

    friend bool operator==(const RealtimeStatus &, const RealtimeStatus &) = default;

private:
    explicit RealtimeStatus(Kind kind, QString message = {}) : m_kind(kind), m_message(std::move(message)) {}

    Kind m_kind = Kind::idle;
    QString m_message;
};

// One earlier question and its answer, re-sent to a fresh connection.
struct HistoryEntry
{
    QString question;
    QString answer;

    friend bool operator==(const HistoryEntry &, const HistoryEntry &) = default;
};
using History = QList<HistoryEntry>;
