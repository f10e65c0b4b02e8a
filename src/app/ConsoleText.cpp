#include "app/ConsoleText.h"

#include <QByteArray>

namespace ConsoleText {

void write(std::FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

} // namespace ConsoleText
