#include "app/ConsoleText.h"

#include <QByteArray>

namespace ConsoleText {

void write(std::FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

void writeError(std::FILE *stream, const QString &message)
{
    write(stream, QStringLiteral("ketterbloom: %1\n").arg(message));
}

} // namespace ConsoleText
