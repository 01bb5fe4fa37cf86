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

    virtual ~ImProvisioner() = default;
    virtual bool provision(const QVector<Account>& accounts, QString* error) = 0;
};
