#include "realtimesim/SimImage.h"

#include <QJsonObject>
#include <QStringList>

namespace SimImage {

namespace {

// The decoded picture, or nothing when `url` is not a base64 PNG/JPEG data URI.
QByteArray decodeDataUri(const QString &url)
{
    static const QLatin1String jpeg("data:image/jpeg;base64,");
    static const QLatin1String png("data:image/png;base64,");
    const bool isJpeg = url.startsWith(jpeg);
    if (!isJpeg && !url.startsWith(png))
        return {};
    const QByteArray encoded = url.mid(isJpeg ? jpeg.size() : png.size()).toLatin1();
    const auto decoded = QByteArray::fromBase64Encoding(encoded, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return {};
    const QByteArray bytes = *decoded;
    const bool magicOk = isJpeg ? bytes.startsWith("\xFF\xD8\xFF") : bytes.startsWith("\x89PNG\r\n\x1A\n");
    return magicOk ? bytes : QByteArray();
}

} // namespace

SimUserContent check(const QJsonArray &content)
{
    SimUserContent out;
    QStringList texts;
    for (qsizetype i = 0; i < content.size(); ++i) {
        const QJsonObject part = content.at(i).toObject();
        const QString type = part.value("type").toString();
        const QString at = QStringLiteral("item.content[%1]").arg(i);
        if (type == QLatin1String("input_text")) {
            if (!part.value("text").isString()) {
                out.error = at + QStringLiteral(".text");
                return out;
            }
            texts.append(part.value("text").toString());
        } else if (type == QLatin1String("input_image")) {
            const QByteArray bytes = decodeDataUri(part.value("image_url").toString());
            if (bytes.isEmpty()) {
                out.error = at + QStringLiteral(".image_url");
                return out;
            }
            out.image = bytes;
            ++out.images;
        } else {
            out.error = at + QStringLiteral(".type");
            return out;
        }
    }
    out.text = texts.join(QLatin1Char('\n'));
    return out;
}

} // namespace SimImage
