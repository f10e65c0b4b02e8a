#pragma once

#include <QByteArray>
#include <QImage>
#include <QRect>
#include <QSize>
#include <QString>

// A screen picture made ready to send: cropped to the chosen region, scaled so that its longer
// side is at most `maxSide` pixels, encoded as JPEG; and a small thumbnail for the card. The
// full-size capture itself is never sent.
struct PreparedScreenImage
{
    QByteArray jpeg;          // what is sent
    QSize size;               // of `jpeg`, in pixels
    QByteArray thumbnailJpeg; // longer side at most ScreenImage::thumbnailSide

    bool isNull() const { return jpeg.isEmpty(); }
};

class ScreenImage
{
public:
    static constexpr int maxSide = 1600;
    static constexpr int thumbnailSide = 160;
    static constexpr int jpegQuality = 85;

    // `region` is in the image's pixels; empty (or not overlapping it) means the whole image.
    // Null when `screen` is null.
    static PreparedScreenImage prepare(const QImage &screen, const QRect &region = {});
    // The size `size` scales to so that neither side exceeds `limit` (never enlarged).
    static QSize fitted(const QSize &size, int limit);
    // "data:image/jpeg;base64,…"
    static QString dataUri(const QByteArray &jpeg);
};
