#include "speech/SpeechText.h"

#include <QStringList>

namespace SpeechText {

QString format(const QString &raw)
{
    QStringList words = raw.simplified().split(u' ', Qt::SkipEmptyParts);
    for (QString &word : words) {
        if (word == u"i" || word.startsWith(u"i'"))
            word[0] = u'I';
    }
    QString text = words.join(u' ');
    if (!text.isEmpty())
        text[0] = text[0].toUpper();
    return text;
}

} // namespace SpeechText
