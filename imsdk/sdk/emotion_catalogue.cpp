#include "sdk/emotion_catalogue.h"

#include "emotion/emotion_table.h"

static void initEmotionResources() { Q_INIT_RESOURCE(openim_emotion); }

const QList<EmotionCatalogue::Entry>& EmotionCatalogue::entries() {
    static const QList<Entry> list = [] {
        initEmotionResources();
        QList<Entry> out;
        for (const emotion_table::Row& row : emotion_table::kRows)
            out.append({QStringLiteral(":/openim/emotion/%1.png").arg(QLatin1String(row.name)),
                        QString::fromLatin1(row.code)});
        return out;
    }();
    return list;
}
