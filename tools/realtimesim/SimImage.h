#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QString>

// The content of a user item as the service accepts it: "input_text" parts with a "text",
// "input_image" parts whose "image_url" is a base64 data URI of a PNG or JPEG picture.
struct SimUserContent
{
    QString error;    // the offending parameter ("item.content[1].image_url"); empty when valid
    QString text;     // the text parts, joined by newlines
    int images = 0;   // how many pictures it holds
    QByteArray image; // the decoded bytes of the last picture
};

namespace SimImage {

SimUserContent check(const QJsonArray &content);

} // namespace SimImage
