#include "review/TranscriptReader.h"

#include <QRegularExpression>
#include <QStringList>

namespace {

const QString kInterviewer = QStringLiteral("**Interviewer:** ");
const QString kCopilot = QStringLiteral("**Copilot:** ");
const QString kYou = QStringLiteral("**You:** ");
const QString kNone = QStringLiteral("—");

QString clean(const QString &text)
{
    const QString trimmed = text.trimmed();
    return trimmed == kNone ? QString() : trimmed;
}

} // namespace

QList<TranscriptReader::Entry> TranscriptReader::read(const QString &markdown)
{
    QList<Entry> entries;
    QString *field = nullptr;   // the part a continued line belongs to
    for (const QString &line : markdown.split(QLatin1Char('\n'))) {
        if (line.startsWith(QLatin1String("### "))) {
            entries << Entry{line.mid(4).trimmed(), {}, {}, {}};
            field = nullptr;
        } else if (entries.isEmpty()) {
            continue;   // the header
        } else if (line.startsWith(kInterviewer)) {
            entries.last().question = line.mid(kInterviewer.size());
            field = &entries.last().question;
        } else if (line.startsWith(kCopilot)) {
            entries.last().draft = line.mid(kCopilot.size());
            field = &entries.last().draft;
        } else if (line.startsWith(kYou)) {
            entries.last().you = line.mid(kYou.size());
            field = &entries.last().you;
        } else if (field) {
            *field += QLatin1Char('\n') + line;   // an answer of several lines
        }
    }
    for (Entry &entry : entries) {
        entry.question = clean(entry.question);
        entry.draft = clean(entry.draft);
        entry.you = clean(entry.you);
    }
    return entries;
}

std::optional<double> TranscriptReader::lengthSeconds(const QString &markdown)
{
    static const QRegularExpression length(QStringLiteral("^Length: (\\d+) min (\\d+) s$"), QRegularExpression::MultilineOption);
    const QRegularExpressionMatch match = length.match(markdown);
    if (!match.hasMatch())
        return std::nullopt;
    return match.captured(1).toDouble() * 60 + match.captured(2).toDouble();
}
