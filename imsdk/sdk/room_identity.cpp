#include "sdk/room_identity.h"

#include <QXmppElement.h>
#include <QXmppMessage.h>
#include <QXmppUtils.h>

namespace {
const char kMucUserNs[] = "http://jabber.org/protocol/muc#user";
}

QString RoomIdentity::accountOf(const QString& realJid, const QString& domain) {
    if (realJid.isEmpty()) return QString();
    if (QXmppUtils::jidToDomain(realJid).compare(domain, Qt::CaseInsensitive) != 0)
        return QString();
    return QXmppUtils::jidToUser(realJid);
}

QString RoomIdentity::archiveStamp(const QXmppMessage& message, const QString& domain) {
    QString last;
    bool stamped = false;
    for (const QXmppElement& e : message.extensions()) {
        if (e.tagName() != QLatin1String("x") ||
            e.attribute(QStringLiteral("xmlns")) != QLatin1String(kMucUserNs))
            continue;
        stamped = true;
        last = e.firstChildElement(QStringLiteral("item")).attribute(QStringLiteral("jid"));
    }
    return stamped ? accountOf(last, domain) : QString();
}
