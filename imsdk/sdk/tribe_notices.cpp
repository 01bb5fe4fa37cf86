#include "sdk/tribe_notices.h"

#include <QXmppElement.h>
#include <QXmppMessage.h>
#include <QXmppUtils.h>
#include <QDebug>

#include "openim/im_message_content.h"
#include "sdk/im_engine.h"
#include "store/stored_message.h"

namespace {

const char kMucUserNs[] = "http://jabber.org/protocol/muc#user";
// Notices are kept (hidden) under this peer so that one seen live and again in the
// account's archive is acted on once.
const char kNoticePeer[] = "tribe-notices";

}  // namespace

TribeNotices::Reading TribeNotices::read(const QXmppMessage& message, const QString& archiveId,
                                         const QDateTime& stamp, TribeNotice* notice) const {
    QXmppElement element;
    for (const QXmppElement& e : message.extensions())
        if (e.tagName() == QLatin1String("tribe") &&
            e.attribute(QStringLiteral("xmlns")) == QLatin1String(kNamespace)) {
            element = e;
            break;
        }
    if (element.isNull()) return Reading::None;
    const QString fromBare = QXmppUtils::jidToBareJid(message.from());
    if (authority_.isEmpty() || fromBare != authority_ + QLatin1Char('@') + engine_->domain()) {
        qInfo().noquote() << "imsdk: tribe notice from" << fromBare << "ignored: not the company's";
        return Reading::Ignored;
    }
    StoredMessage seen;
    seen.peer = QLatin1String(kNoticePeer);
    seen.sender = authority_;
    seen.kind = openim::kContentHidden;
    seen.time = (stamp.isValid() ? stamp : QDateTime::currentDateTimeUtc()).toSecsSinceEpoch();
    seen.stanzaId = archiveId;
    seen.originId = message.originId().isEmpty() ? message.id() : message.originId();
    if (seen.originId.isEmpty() && archiveId.isEmpty()) seen.originId = message.body();
    if (!engine_->messageStore().insert(seen)) return Reading::Ignored;  // seen before

    bool ok = false;
    notice->tribe = element.attribute(QStringLiteral("id")).toULongLong(&ok);
    if (!ok || notice->tribe == 0) {
        qInfo().noquote() << "imsdk: tribe notice without a tribe id ignored";
        return Reading::Ignored;
    }
    notice->event = element.attribute(QStringLiteral("event"));
    notice->account = element.attribute(QStringLiteral("user"));
    notice->title = element.attribute(QStringLiteral("name"));
    notice->time = seen.time;
    return Reading::Notice;
}

QString TribeNotices::invitedRoom(const QXmppMessage& message) {
    const QString direct = message.mucInvitationJid();
    if (!direct.isEmpty()) return direct;
    for (const QXmppElement& e : message.extensions())
        if (e.tagName() == QLatin1String("x") &&
            e.attribute(QStringLiteral("xmlns")) == QLatin1String(kMucUserNs) &&
            !e.firstChildElement(QStringLiteral("invite")).isNull())
            return QXmppUtils::jidToBareJid(message.from());
    return QString();
}
