#pragma once

#include <QByteArray>
#include <QList>

class Database;

// Task cards waiting to be posted into their project's room, or sent to one colleague
// (the executor of a task given to them): written with the change that caused them, sent
// by the room keeper's XMPP session and dropped once the server has them, so a card
// survives an XMPP outage or a back-end restart. Each keeps its id on the wire, so a card
// sent twice is shown once.
class TaskCardOutbox {
public:
    struct Card {
        qint64 id = 0;
        qint64 projectId = 0;
        QByteArray payload;    // the card's JSON
        qint64 recipient = 0;  // direct cards: the colleague, and
        qint64 sender = 0;     // the company's task assistant it comes from
    };

    explicit TaskCardOutbox(Database* db);

    bool add(qint64 projectId, const QByteArray& payload);
    // Oldest first.
    QList<Card> pending(qint64 projectId, int limit) const;
    bool drop(const QList<qint64>& ids);

    bool addDirect(qint64 projectId, qint64 recipient, qint64 sender, const QByteArray& payload);
    QList<Card> pendingDirect(qint64 projectId, int limit) const;
    bool dropDirect(const QList<qint64>& ids);

private:
    bool dropFrom(const char* table, const QList<qint64>& ids);

    Database* db_;
};
