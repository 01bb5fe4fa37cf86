#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

// Creates (or resets) colleagues' accounts on the XMPP server. Only the per-colleague IM
// secret is handed over, never the company password.
class ImProvisioner {
public:
    struct Account {
        QString user;  // the colleague's directory id
        QString secret;
    };

    // A project's group chat: a persistent, members-only room named by the project id.
    struct Room {
        QString id;
        QString name;
        QString owner;        // user id
        QStringList members;  // user ids, the owner included or not
    };

    virtual ~ImProvisioner() = default;
    virtual bool provision(const QVector<Account>& accounts, QString* error) = 0;
    // Makes the rooms exist with exactly these members; rooms of projects that are gone are
    // removed. Not every server can be provisioned this way: the default says so.
    virtual bool provisionRooms(const QVector<Room>& rooms, QString* error) {
        if (error) *error = QStringLiteral("this provisioner does not create rooms");
        return rooms.isEmpty();
    }
};
