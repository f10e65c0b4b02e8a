#pragma once

#include <QByteArray>

namespace kbtest {

// The value of header `name` in a raw HTTP request (request line, headers, blank line), with
// the name compared as HTTP compares it: regardless of case. Empty when absent.
QByteArray httpHeader(const QByteArray &request, const QByteArray &name);

} // namespace kbtest
