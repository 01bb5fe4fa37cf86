#pragma once

#include <QList>
#include <QPair>
#include <QString>

class Database;

// Membership notices waiting to be sent to colleagues' IM accounts: the client learns from
// them that it was added to a project ("joined"), that a member left ("quit") or was
// removed ("kicked"), or that the project was dissolved ("dismissed"), and shows the tip.
// They are written with the change and sent by the room keeper once the project's room is
// in step, so they survive XMPP outages and back-end restarts; each keeps its id on the wire
// so that a notice sent twice is acted on once.
class NoticeOutbox {
public:
    struct Notice {
        qint64 id = 0;
        qint64 projectId = 0;
        qint64 recipient = 0;
        QString event;
        qint64 user = 0;  // whom the notice is about
        QString title;
    };

    explicit NoticeOutbox(Database* db);

    // One notice per (recipient, user) pair.
    bool add(qint64 projectId, const QString& title, const QString& event,
             const QList<QPair<qint64, qint64>>& recipientAndUser);
    // Oldest first.
    QList<Notice> pending(qint64 projectId, int limit) const;
    bool drop(const QList<qint64>& ids);
    QList<qint64> projects() const;

private:
    Database* db_;
};
