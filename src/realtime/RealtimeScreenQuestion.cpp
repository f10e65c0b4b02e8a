#include "realtime/RealtimeScreenQuestion.h"

#include <QJsonArray>

namespace RealtimeScreenQuestion {

QString prompt()
{
    return QStringLiteral("Answer the question shown on this screen. If it is code, give the approach first, then the code.");
}

QJsonObject imageItem(const QByteArray &jpeg, const QString &text)
{
    const QJsonObject image{{"type", "input_image"},
                            {"image_url", QStringLiteral("data:image/jpeg;base64,") + QString::fromLatin1(jpeg.toBase64())}};
    const QJsonObject words{{"type", "input_text"}, {"text", text}};
    return QJsonObject{
        {"type", "conversation.item.create"},
        {"item", QJsonObject{{"type", "message"}, {"role", "user"}, {"content", QJsonArray{image, words}}}},
    };
}

} // namespace RealtimeScreenQuestion
