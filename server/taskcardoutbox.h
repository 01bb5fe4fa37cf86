#pragma once

#include <QByteArray>
#include <QList>

class Database;

// Task cards waiting to be posted into their project's room: written with the change that
// caused them, posted by the room keeper's XMPP session and dropped once the server has
// them, so a card survives an XMPP outage or a back-end restart. Each keeps its id on the
// wire, so a card posted twice is shown once.
class TaskCardOutbox {
public:
    struct Card {
        qint64 id = 0;
        qint64 projectId = 0;
        QByteArray payload;  // the card's JSON
    };

    explicit TaskCardOutbox(Database* db);

    bool add(qint64 projectId, const QByteArray& payload);
    // Oldest first.
    QList<Card> pending(qint64 projectId, int limit) const;
    bool drop(const QList<qint64>& ids);

private:
    Database* db_;
};
