#pragma once

#include <QXmppConfiguration.h>
#include <QXmppElement.h>
#include <QXmppPresence.h>
#include <QSslCertificate>
#include <QSslConfiguration>

#include "prosody_server.h"

// A plain QXmpp client of a test or benchmark trusts the instance's own authority, as the
// SDK does with the company's CA file.
inline void trustProsody(QXmppConfiguration& config, const ProsodyServer& server) {
    config.setIgnoreSslErrors(false);
    if (server.caFile().isEmpty()) return;
    config.setCaCertificates(QSslConfiguration::systemCaCertificates() +
                             QSslCertificate::fromPath(server.caFile()));
}

// A plain QXmpp client's settings for `user` of the test's server (secret "pw-<user>"
// unless `secret` says otherwise).
inline QXmppConfiguration plainConfig(const ProsodyServer& server, const QString& user,
                                      const QString& resource = QStringLiteral("plain"),
                                      const QString& secret = QString()) {
    QXmppConfiguration config;
    config.setHost(server.host());
    config.setPort(server.port());
    trustProsody(config, server);
    config.setDomain(server.domain());
    config.setUser(user);
    config.setPassword(secret.isNull() ? QStringLiteral("pw-") + user : secret);
    config.setResource(resource);
    config.setAutoReconnectionEnabled(false);
    return config;
}

// The presence that enters room `room` (its address) as `nick`.
inline QXmppPresence roomJoin(const QString& room, const QString& nick) {
    QXmppPresence join;
    join.setTo(room + QLatin1Char('/') + nick);
    QXmppElement x;
    x.setTagName(QStringLiteral("x"));
    x.setAttribute(QStringLiteral("xmlns"), QStringLiteral("http://jabber.org/protocol/muc"));
    join.setExtensions({x});
    return join;
}
