#pragma once

#include "improvisioner.h"

// Writes accounts straight into the data folder of a Prosody that uses its built-in file
// storage (the dev stack's). One file per account instead of one prosodyctl process per
// account: hundreds of colleagues are provisioned in well under a second, with or without
// the server running. The secret is written in Prosody's plain form, which both of its
// internal authentication back ends read (the hashed one converts it on first sign-in).
class ProsodyStoreProvisioner : public ImProvisioner {
public:
    // Rooms live on `mucDomain`, by default "conference.<domain>".
    ProsodyStoreProvisioner(const QString& dataDir, const QString& domain,
                            const QString& mucDomain = QString());

    bool provision(const QVector<Account>& accounts, QString* error) override;
    // Writes the rooms in the group chat component's storage. A running Prosody reads a room
    // from there when it is first used; rooms it already holds in memory keep their members
    // until it restarts.
    bool provisionRooms(const QVector<Room>& rooms, QString* error) override;

    // Prosody's file-name encoding: every byte that is not a letter or digit as %xx.
    static QString encodeName(const QString& name);

private:
    QString dataDir_;
    QString domain_;
    QString mucDomain_;
};
