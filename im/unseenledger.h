#pragma once

#include <QString>
#include <QVector>

// What the user has not seen yet, kept in the IM store beside the messages themselves, so a
// restart, an update or a crash brings back the same badges, order and title count. A
// conversation's messages count as seen once it was open in front of the user.
class UnseenLedger {
public:
    struct Entry {
        QString id;  // a colleague's id, or a tribe's (the project's) id
        int count = 0;
        qint64 lastTime = 0;
    };

    // Oldest activity first; empty when the SDK is not signed in.
    static QVector<Entry> waiting();
    // `isTribe` tells the store which kind of conversation `id` names.
    static void markSeen(const QString& id, bool isTribe);
};
