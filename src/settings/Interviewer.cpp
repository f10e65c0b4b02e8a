#include "settings/Interviewer.h"

#include <QHashFunctions>
#include <QJsonDocument>

QString trimSpacesAndTabs(const QString &text)
{
    const auto isBlank = [](QChar c) { return c == QLatin1Char(' ') || c == QLatin1Char('\t'); };
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isBlank(text.at(begin)))
        ++begin;
    while (end > begin && isBlank(text.at(end - 1)))
        --end;
    return text.mid(begin, end - begin);
}

QString Interviewer::label(int index) const
{
    const QString n = trimSpacesAndTabs(name);
    const QString t = trimSpacesAndTabs(title);
    if (!n.isEmpty())
        return t.isEmpty() ? n : n + QStringLiteral(" \u2014 ") + t;
    if (!t.isEmpty())
        return t;
    return QStringLiteral("Interviewer ") + QString::number(index + 1);
}

bool Interviewer::isBlank() const
{
    return trimSpacesAndTabs(name).isEmpty() && trimSpacesAndTabs(title).isEmpty();
}

QString Interviewer::idText(const QUuid &id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

QJsonObject Interviewer::toJson() const
{
    return QJsonObject{
        {QStringLiteral("id"), idText(id)},
        {QStringLiteral("name"), name},
        {QStringLiteral("title"), title},
    };
}

std::optional<Interviewer> Interviewer::fromJson(const QJsonValue &value)
{
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject o = value.toObject();
    const QJsonValue id = o.value(QLatin1String("id"));
    const QJsonValue name = o.value(QLatin1String("name"));
    const QJsonValue title = o.value(QLatin1String("title"));
    if (!id.isString() || !name.isString() || !title.isString())
        return std::nullopt;
    // Only the hyphenated 36-character form (either case) is an id; the all-zero id is valid.
    const QString idString = id.toString();
    const QUuid uuid = QUuid::fromString(idString);
    if (idString.size() != 36 || (uuid.isNull() && idString != QLatin1String("00000000-0000-0000-0000-000000000000")))
        return std::nullopt;
    return Interviewer(uuid, name.toString(), title.toString());
}

QByteArray Interviewer::encodeList(const QList<Interviewer> &panel)
{
    QJsonArray array;
    for (const Interviewer &person : panel)
        array.append(person.toJson());
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

std::optional<QList<Interviewer>> Interviewer::decodeList(const QByteArray &json)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !doc.isArray())
        return std::nullopt;
    QList<Interviewer> panel;
    for (const QJsonValue &entry : doc.array()) {
        const auto person = fromJson(entry);
        if (!person)
            return std::nullopt;
        panel.append(*person);
    }
    return panel;
}

size_t qHash(const Interviewer &interviewer, size_t seed) noexcept
{
    return qHashMulti(seed, interviewer.id, interviewer.name, interviewer.title);
}
