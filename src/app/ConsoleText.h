#pragma once

#include <QString>

#include <cstdio>

// Text for the terminal: written as UTF-8 and flushed at once, so that what the program
// prints interleaves in order with whatever else writes to the same stream.
namespace ConsoleText {

void write(std::FILE *stream, const QString &text);
// "ketterbloom: <message>" on a line of its own: the program's complaint, named as commands do.
void writeError(std::FILE *stream, const QString &message);

} // namespace ConsoleText
