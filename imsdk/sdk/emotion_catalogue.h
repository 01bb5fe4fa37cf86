#pragma once

#include <QList>
#include <QString>

// The emoticon catalogue: pictures compiled into the SDK as Qt resources, so their paths
// (":/openim/emotion/<name>.png") work wherever the program runs.
class EmotionCatalogue {
public:
    struct Entry {
        QString picture;
        QString code;
    };
    static const QList<Entry>& entries();
};
