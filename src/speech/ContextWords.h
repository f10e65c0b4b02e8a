#pragma once

#include <QString>
#include <QStringList>

// The words of the user's own documents (CV, job description, notes) that on-device
// recognition should expect: names, technologies, places.
namespace ContextWords {

// Distinct words of `text`, lower case, most frequent first, at most `limit` of them: runs of
// letters (with inner apostrophes) of three letters or more. Words the recogniser does not
// know are dropped later, by the engine.
QStringList fromText(const QString &text, int limit = 2000);

} // namespace ContextWords
