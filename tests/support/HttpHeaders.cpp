#include "HttpHeaders.h"

#include <QList>

namespace kbtest {

QByteArray httpHeader(const QByteArray &request, const QByteArray &name)
{
    const qsizetype end = request.indexOf("\r\n\r\n");
    const QList<QByteArray> lines = request.left(end < 0 ? request.size() : end).split('\n');
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QByteArray line = lines[i].trimmed();
        const qsizetype colon = line.indexOf(':');
        if (colon > 0 && line.left(colon).trimmed().compare(name, Qt::CaseInsensitive) == 0)
            return line.mid(colon + 1).trimmed();
    }
    return {};
}

} // namespace kbtest
