#pragma once

#include <QCoreApplication>
#include <QString>
#include <QStringList>

#include <optional>

// Turns the files a user attaches (CV, notes, a job posting) into one block of plain text
// for the model's instructions. Stateless and quiet: a file that cannot be read contributes
// nothing. The kind of a file is decided by its extension, compared case-insensitively: "pdf"
// (text layer of every page), "rtf" (see RtfReader), anything else strict UTF-8 text.
class ContextLoader
{
    Q_DECLARE_TR_FUNCTIONS(ContextLoader)

public:
    // A file cut to the per-file limit: its first `used` of `total` characters were kept.
    struct Cut
    {
        QString name;
        int used = 0;
        int total = 0;
        friend bool operator==(const Cut &, const Cut &) = default;
    };

    struct Result
    {
        QString text;      // "----- <name> -----\n<text>" blocks joined by blank lines
        QStringList names; // file names (with extension) of the files that gave text
        QStringList noText;      // files that opened but hold no text (a scanned PDF)
        QStringList unreadable;  // files that could not be read at all
        QList<Cut> cut;          // files cut to the limit
    };

    // What one file gave.
    struct Extraction
    {
        QString text;      // cleaned, cut to the limit
        int total = 0;     // characters after cleaning, before the cut
        bool cut = false;
    };

    // Characters (grapheme clusters) kept per file after cleaning.
    static constexpr int perFileLimit = 24000;

    static Result load(const QStringList &paths);
    // The cleaned text of one file, or nothing when it cannot be read. A PDF without a text
    // layer gives an empty string.
    static std::optional<QString> extract(const QString &path);
    static std::optional<Extraction> read(const QString &path);
    // CRLF to LF, runs of spaces and tabs to one space, three or more line breaks to two,
    // trimmed, then cut to `limit` characters with "\n[…truncated]" appended when longer.
    static QString clean(const QString &text, int limit);

    // What the file pickers offer, without dots, and the list of kinds shown to the user.
    static QStringList offeredExtensions();
    static QString kindsLabel();
    // A name filter for QFileDialog covering the offered extensions in either case.
    static QString fileDialogFilter();

    // What the callers show when nothing could be read.
    static QString panelNothingReadMessage();
    static QString onboardingNothingReadMessage();
    // One line per file that gave nothing or was cut ("cv.pdf: no text found — a scanned
    // PDF?", "notes.md: first 24,000 of 31,200 characters used"); empty when all read fully.
    static QStringList notes(const Result &result);

private:
    static std::optional<QString> pdfText(const QString &path);
};
