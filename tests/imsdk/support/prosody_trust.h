#pragma once

#include <QXmppConfiguration.h>
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
