#pragma once

#include <QDateTime>
#include <QString>

// Small text rules shared by the session's bookkeeping.
namespace TextRules {

// Trims blanks (spaces and tabs, not line ends) from both ends.
QString trimBlanks(const QString &text);
// User-perceived characters (grapheme clusters).
qsizetype characterCount(const QString &text);
// Blank-separated non-empty words.
qsizetype wordCount(const QString &text);
// "meeting_<stamp>" style stamp of a local time: yyyy-MM-dd_HH-mm-ss.
QString sessionStamp(const QDateTime &wallTime);

} // namespace TextRules
