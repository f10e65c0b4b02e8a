#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

// One member of the interview panel as the user typed it: a name and a job title. A plain
// value, compared and hashed over all three fields, identified by `id`.
struct Interviewer
{
    QUuid id = QUuid::createUuid();
    QString name;
    QString title;

    Interviewer() = default;
    Interviewer(const QUuid &id, const QString &name, const QString &title)
        : id(id), name(name), title(title)
    {
    }

    // "Name — Title", or whichever of the two is present (both trimmed of spaces and tabs),
    // or "Interviewer <index + 1>" when both are blank. Never empty.
    QString label(int index) const;
    // True when name or title holds more than spaces and tabs.
    bool isBlank() const;

    // {"id": "<UPPER-CASE-UUID>", "name": ..., "title": ...}
    QJsonObject toJson() const;
    // Requires all three keys with string values and a valid UUID; anything else fails.
    static std::optional<Interviewer> fromJson(const QJsonValue &value);

    // The whole panel as a compact JSON array, and back; one bad entry fails the whole list.
    static QByteArray encodeList(const QList<Interviewer> &panel);
    static std::optional<QList<Interviewer>> decodeList(const QByteArray &json);

    // Canonical text form of an id: upper-case hex with hyphens, no braces.
    static QString idText(const QUuid &id);

    friend bool operator==(const Interviewer &a, const Interviewer &b)
    {
        return a.id == b.id && a.name == b.name && a.title == b.title;
    }
    friend bool operator!=(const Interviewer &a, const Interviewer &b) { return !(a == b); }
};

size_t qHash(const Interviewer &interviewer, size_t seed = 0) noexcept;

// Spaces and tabs removed from both ends; line breaks are kept.
QString trimSpacesAndTabs(const QString &text);
