#include "settings/AnswerStyle.h"

#include <QRegularExpression>

QString AnswerStyle::rawValue(Length value)
{
    switch (value) {
    case Length::brief:
        return QStringLiteral("brief");
    case Length::detailed:
        return QStringLiteral("detailed");
    case Length::standard:
        break;
    }
    return QStringLiteral("standard");
}

QString AnswerStyle::rawValue(Structure value)
{
    return value == Structure::star ? QStringLiteral("star") : QStringLiteral("automatic");
}

std::optional<AnswerStyle::Length> AnswerStyle::lengthFromRaw(const QString &raw)
{
    for (Length value : {Length::standard, Length::brief, Length::detailed}) {
        if (raw == rawValue(value))
            return value;
    }
    return std::nullopt;
}

std::optional<AnswerStyle::Structure> AnswerStyle::structureFromRaw(const QString &raw)
{
    for (Structure value : {Structure::automatic, Structure::star}) {
        if (raw == rawValue(value))
            return value;
    }
    return std::nullopt;
}

QStringList AnswerStyle::sentences() const
{
    QStringList out;
    if (length == Length::brief)
        out.append(QStringLiteral("Keep every answer brief: two or three sentences that can be said aloud as they stand."));
    else if (length == Length::detailed)
        out.append(QStringLiteral("Give detailed answers: up to two short paragraphs."));
    if (structure == Structure::star)
        out.append(QStringLiteral("Answer behavioural questions (about how you acted in a past situation) in STAR "
                                  "form: Situation, Task, Action, Result."));
    const QString name = language.trimmed();
    if (!name.isEmpty())
        out.append(QStringLiteral("Always answer in %1, whatever language the question is asked in.").arg(name));
    return out;
}

QString AnswerStyle::languageCode(const QString &text)
{
    static const QRegularExpression twoLetters(QStringLiteral("^[a-z]{2}$"));
    const QString code = text.trimmed().toLower();
    return twoLetters.match(code).hasMatch() ? code : QString();
}
