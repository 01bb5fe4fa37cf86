#pragma once

#include "improvisioner.h"

#include <QUrl>

// Provisions accounts on an ejabberd through its HTTP API (mod_http_api), signed in as the
// server's administrator (the back end's own account, by HTTP basic authentication):
// "register" makes an account, "change_password" resets one that exists, so a restart on
// kept data gives every colleague the secret the directory holds.
//
// With a roster group, every account is also a member of that shared roster group
// (mod_shared_roster), which ejabberd shows to its members: colleagues see each other's
// presence without subscribing, and the administrator, never a member, stays out of it
// both ways. The group is made if the server lacks it; accounts already in it are left
// alone, since each addition costs the server a roster push to every member.
//
// A few connections work at once, each on a thread of its own with its connection kept
// alive; the first failure stops the rest.
class EjabberdApiProvisioner : public ImProvisioner {
public:
    struct Settings {
        QUrl api;  // the API's base address, e.g. https://127.0.0.1:5443/api
        QString domain;
        QString adminJid;
        QString adminSecret;
        QString caFile;       // an authority trusted beside the system's (PEM)
        QString rosterGroup;  // empty: no shared roster
        int parallel = 6;
        int timeoutMs = 30000;
    };

    explicit EjabberdApiProvisioner(const Settings& settings);

    bool provision(const QVector<Account>& accounts, QString* error) override;

private:
    Settings settings_;
};
