#include "emotionset.h"

EmotionSet& EmotionSet::instance() {
    static EmotionSet set;
    return set;
}

void EmotionSet::setItems(const QList<Item>& items) {
    items_ = items;
    byCode_.clear();
    byPicture_.clear();
    longestCode_ = 0;
    for (const Item& item : items_) {
        byCode_.insert(item.code, item.picture);
        byPicture_.insert(item.picture, item.code);
        longestCode_ = qMax(longestCode_, item.code.size());
    }
}

QList<EmotionSet::Run> EmotionSet::split(const QString& text) const {
    QList<Run> runs;
    QString plain;
    int i = 0;
    while (i < text.size()) {
        if (text.at(i) == QLatin1Char('[') && !byCode_.isEmpty()) {
            const int close = text.indexOf(QLatin1Char(']'), i + 1);
            if (close > 0 && close - i + 1 <= longestCode_) {
                const QString code = text.mid(i, close - i + 1);
                const auto it = byCode_.constFind(code);
                if (it != byCode_.constEnd()) {
                    if (!plain.isEmpty()) runs.append({plain, QString()});
                    plain.clear();
                    runs.append({code, it.value()});
                    i = close + 1;
                    continue;
                }
            }
        }
        plain.append(text.at(i));
        ++i;
    }
    if (!plain.isEmpty()) runs.append({plain, QString()});
    return runs;
}
