#include "speech/ContextWords.h"

#include <QHash>

#include <algorithm>
#include <vector>

namespace ContextWords {

QStringList fromText(const QString &text, int limit)
{
    QHash<QString, int> counts;
    std::vector<QString> order; // first appearance, so that ties keep the document's order
    QString word;
    const auto flush = [&] {
        while (word.endsWith(u'\''))
            word.chop(1);
        if (word.size() >= 3) {
            auto it = counts.find(word);
            if (it == counts.end()) {
                counts.insert(word, 1);
                order.push_back(word);
            } else {
                ++*it;
            }
        }
        word.clear();
    };
    for (const QChar c : text) {
        if (c.isLetter())
            word += c.toLower();
        else if ((c == u'\'' || c == QChar(0x2019)) && !word.isEmpty())
            word += u'\'';
        else
            flush();
    }
    flush();
    std::stable_sort(order.begin(), order.end(),
                     [&](const QString &a, const QString &b) { return counts.value(a) > counts.value(b); });
    if (order.size() > static_cast<std::size_t>(std::max(0, limit)))
        order.resize(static_cast<std::size_t>(std::max(0, limit)));
    return QStringList(order.begin(), order.end());
}

} // namespace ContextWords
