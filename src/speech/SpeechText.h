#pragma once

#include <QString>

// Minimal formatting of recogniser output, which has no capitals and no punctuation.
namespace SpeechText {

// First letter upper-case, the word "i" as "I", runs of blanks collapsed.
QString format(const QString &raw);

} // namespace SpeechText
