#include "screenshot/ScreenImage.h"

#include <QBuffer>
#include <QImageWriter>
#include <QPainter>

namespace {

QByteArray encodeJpeg(const QImage &image, int quality)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "jpeg");
    writer.setQuality(quality);
    // JPEG has no alpha: flatten onto white so transparent parts don't turn black.
    QImage opaque(image.size(), QImage::Format_RGB32);
    opaque.fill(Qt::white);
    {
        QPainter painter(&opaque);
        painter.drawImage(0, 0, image);
    }
    if (!writer.write(opaque))
        return {};
    return bytes;
}

QImage scaledToFit(const QImage &image, int limit)
{
    const QSize target = ScreenImage::fitted(image.size(), limit);
    if (target == image.size())
        return image;
    return image.scaled(target, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

} // namespace

QSize ScreenImage::fitted(const QSize &size, int limit)
{
    const int longer = std::max(size.width(), size.height());
    if (longer <= limit || longer <= 0)
        return size;
    const double factor = double(limit) / longer;
    return QSize(std::max(1, int(size.width() * factor + 0.5)), std::max(1, int(size.height() * factor + 0.5)))
        .boundedTo(QSize(limit, limit));
}

PreparedScreenImage ScreenImage::prepare(const QImage &screen, const QRect &region)
{
    if (screen.isNull())
        return {};
    const QRect area = region.intersected(screen.rect());
    QImage picked = area.isEmpty() ? screen : screen.copy(area);
    picked.setDevicePixelRatio(1.0);
    const QImage sent = scaledToFit(picked, maxSide);
    PreparedScreenImage out;
    out.jpeg = encodeJpeg(sent, jpegQuality);
    if (out.jpeg.isEmpty())
        return {};
    out.size = sent.size();
    out.thumbnailJpeg = encodeJpeg(scaledToFit(sent, thumbnailSide), 80);
    return out;
}

QString ScreenImage::dataUri(const QByteArray &jpeg)
{
    return QStringLiteral("data:image/jpeg;base64,") + QString::fromLatin1(jpeg.toBase64());
}
