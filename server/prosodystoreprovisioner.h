#pragma once

#include "improvisioner.h"

// Writes accounts straight into the data folder of a Prosody that uses its built-in file
// storage (the dev stack's). One file per account instead of one prosodyctl process per
// account: hundreds of colleagues are provisioned in well under a second, with or without
// the server running. The secret is written in Prosody's plain form, which both of its
// internal authentication back ends read (the hashed one converts it on first sign-in).
// Project rooms are not written here: a running server would not see them (the room
// keeper creates them through the protocol instead).
class ProsodyStoreProvisioner : public ImProvisioner {
public:
    ProsodyStoreProvisioner(const QString& dataDir, const QString& domain);

    bool provision(const QVector<Account>& accounts, QString* error) override;

    // Prosody's file-name encoding: every byte that is not a letter or digit as %xx.
    static QString encodeName(const QString& name);

private:
    QString dataDir_;
    QString domain_;
};
