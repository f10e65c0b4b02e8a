#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

// The message that asks about a picture of the user's screen: one user item holding the image
// (a JPEG data URI) and a short instruction, after which the client asks for a response.
namespace RealtimeScreenQuestion {

// The text sent with every screen picture.
QString prompt();

// {"type": "conversation.item.create", "item": {"type": "message", "role": "user", "content":
//   [{"type": "input_image", "image_url": "data:image/jpeg;base64,…"}, {"type": "input_text", "text": …}]}}
QJsonObject imageItem(const QByteArray &jpeg, const QString &text);

} // namespace RealtimeScreenQuestion
