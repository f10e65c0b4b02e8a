#include "session/TextRules.h"

#include <QDateTime>
#include <QTextBoundaryFinder>

namespace TextRules {

namespace {
bool isBlank(QChar ch)
{
    return ch == QLatin1Char('\t') || ch.category() == QChar::Separator_Space;
}
} // namespace

QString trimBlanks(const QString &text)
{
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isBlank(text.at(begin))) {
        ++begin;
    }
    while (end > begin && isBlank(text.at(end - 1))) {
        --end;
    }
    return text.mid(begin, end - begin);
}

qsizetype characterCount(const QString &text)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype count = 0;
    while (finder.toNextBoundary() != -1) {
        ++count;
    }
    return count;
}

qsizetype wordCount(const QString &text)
{
    qsizetype count = 0;
    bool inWord = false;
    for (const QChar ch : text) {
        if (isBlank(ch) || ch == QLatin1Char('\n') || ch == QLatin1Char('\r')) {
            inWord = false;
        } else if (!inWord) {
            inWord = true;
            ++count;
        }
    }
    return count;
}

QString sessionStamp(const QDateTime &wallTime)
{
    return wallTime.toString(QStringLiteral("yyyy-MM-dd_HH-mm-ss"));
}

} // namespace TextRules
