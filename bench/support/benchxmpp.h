#pragma once

#include <QXmppConfiguration.h>

#include "support/prosody_server.h"

namespace bench {

// A plain XMPP client's settings for a user of the benchmark's private server (every
// benchmark user's password is "pw").
inline QXmppConfiguration xmppConfig(const ProsodyServer& server, const QString& user) {
    QXmppConfiguration c;
    c.setHost(server.host());
    c.setPort(server.port());
    c.setDomain(server.domain());
    c.setUser(user);
    c.setPassword(QStringLiteral("pw"));
    c.setResource(QStringLiteral("bench"));
    c.setAutoReconnectionEnabled(false);
    return c;
}

}  // namespace bench
