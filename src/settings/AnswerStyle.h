#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <optional>

// How the user wants answers shaped beyond the system prompt: their length, their structure
// and their language. At the defaults (standard, automatic, no language) a style adds nothing
// to the instructions, so the text sent to the service stays exactly what it is without it.
class AnswerStyle
{
    Q_GADGET
public:
    enum class Length { standard, brief, detailed };
    Q_ENUM(Length)
    enum class Structure { automatic, star };
    Q_ENUM(Structure)

    Length length = Length::standard;
    Structure structure = Structure::automatic;
    QString language; // a language name ("German"); empty (or blank) answers in the question's language

    // Raw values are the case names; parsing is exact and case-sensitive.
    static QString rawValue(Length value);
    static QString rawValue(Structure value);
    static std::optional<Length> lengthFromRaw(const QString &raw);
    static std::optional<Structure> structureFromRaw(const QString &raw);

    // One sentence per setting that is not at its default, in the order length, structure,
    // language. Empty at the defaults.
    QStringList sentences() const;

    // The ISO-639-1 code in `text` (two letters, surrounding blanks and letter case ignored),
    // or an empty string when `text` is not one. Used for the transcription language hint.
    static QString languageCode(const QString &text);

    friend bool operator==(const AnswerStyle &, const AnswerStyle &) = default;
};
