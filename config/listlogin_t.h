#pragma once

#include <QVector>

#include "configbase_t.h"

namespace quelix {

// Remembered accounts, "LoginList.db" in the Config folder, in the login view's order.
class listlogin_t : public configbase_t {
public:
    struct Entry {
        QString username;
        QString password;
        bool operator==(const Entry& o) const {
            return username == o.username && password == o.password;
        }
    };

    QByteArray serialize() const override;
    bool parse(const QByteArray& bytes) override;

    QString autoLogin;
    QVector<Entry> logins;
};

}  // namespace quelix
