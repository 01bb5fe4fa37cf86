#pragma once

#include <QXmppClient.h>
#include <QXmppConfiguration.h>
#include <QXmppMessage.h>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <functional>

#include "support/prosody_server.h"
#include "support/prosody_trust.h"
#include "support/test_session.h"

namespace bench {

// A plain XMPP client's settings for a user of the benchmark's private server (every
// benchmark user's password is "pw").
inline QXmppConfiguration xmppConfig(const ProsodyServer& server, const QString& user) {
    return plainConfig(server, user, QStringLiteral("bench"), QStringLiteral("pw"));
}

// Sends `count` messages of `type` to `to` (bodies "<prefix> <first + i>") and returns the
// seconds until `received` reaches `target`, or -1 after `timeoutMs`.
inline double sendBurst(QXmppClient& sender, const QString& to, QXmppMessage::Type type, int count,
                        int first, const QString& prefix, const std::function<int()>& received,
                        int target, int timeoutMs) {
    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < count; ++i) {
        QXmppMessage m(QString(), to, QStringLiteral("%1 %2").arg(prefix).arg(first + i));
        m.setType(type);
        m.setId(QStringLiteral("b%1").arg(first + i));
        sender.sendPacket(m);
        if (i % 500 == 0) QCoreApplication::processEvents();
    }
    if (!waitUntil([&] { return received() >= target; }, timeoutMs)) return -1;
    return clock.nsecsElapsed() / 1e9;
}

}  // namespace bench
