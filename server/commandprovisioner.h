#pragma once

#include "improvisioner.h"

#include <QStringList>

// Runs the XMPP server's own account tool once per account, for servers whose storage we do
// not write ourselves. The program and arguments are given with the placeholders %u (user),
// %d (domain) and %p (secret), for example
//   prosodyctl --config /etc/prosody/prosody.cfg.lua register %u %d %p
//   ejabberdctl register %u %d %p
// A few processes run at a time; an existing ejabberd account is reset with
// "ejabberdctl change_password %u %d %p" given as the second command.
class CommandProvisioner : public ImProvisioner {
public:
    CommandProvisioner(const QString& domain, const QStringList& command,
                       const QStringList& fallbackCommand = QStringList(), int parallel = 4);

    bool provision(const QVector<Account>& accounts, QString* error) override;

private:
    QStringList expand(const QStringList& command, const Account& account) const;

    QString domain_;
    QStringList command_;
    QStringList fallback_;
    int parallel_;
};
