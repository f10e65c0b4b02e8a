#pragma once

#include <QByteArray>

// Events logs made up for the page tests, in the format a session writes.
namespace ReviewSamples {

// A 40-question session of about an hour: interviewer turns, timed answers, costs, two
// reconnects and a merged follow-up.
QByteArray fortyCardLog();

// Questions and answers full of markup, ampersands, quotes and very long words.
QByteArray hostileLog();

} // namespace ReviewSamples
