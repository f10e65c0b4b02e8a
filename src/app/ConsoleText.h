#pragma once

#include <QString>

#include <cstdio>

// Text for the terminal: written as UTF-8 and flushed at once, so that what the program
// prints interleaves in order with whatever else writes to the same stream.
namespace ConsoleText {

void write(std::FILE *stream, const QString &text);

} // namespace ConsoleText
