// Where each received stanza goes: push channel, tribes, one-to-one messages, archive reads.
#include "sdk/stanza_router.h"

#include <QXmppMessage.h>
#include <QXmppUtils.h>
#include <QDebug>

#include "sdk/archive_catch_up.h"
#include "sdk/delivery_receipts.h"
#include "sdk/history_pager.h"
#include "sdk/im_engine.h"
#include "sdk/incoming_messages.h"
#include "sdk/presence_requests.h"
#include "sdk/room_health.h"
#include "sdk/stanza_guard.h"
#include "sdk/store_batcher.h"
#include "sdk/tribe_messages.h"
#include "sdk/tribe_rooms.h"
#include "sdk/wide_text.h"

using Source = IncomingMessages::Source;
using wide_text::fromQ;

StanzaRouter::StanzaRouter(ImEngine* engine, StoreBatcher* batcher, IncomingMessages* incoming,
                           ArchiveCatchUp* catchUp, HistoryPager* history,
                           PresenceRequests* presence)
    : QObject(engine),
      engine_(engine),
      batcher_(batcher),
      incoming_(incoming),
      catchUp_(catchUp),
      history_(history),
      presence_(presence) {}

void StanzaRouter::onMessage(const QXmppMessage& message) {
    if (message.type() == QXmppMessage::Error) {
        engine_->roomHealth()->handleError(message);
        return;
    }
    for (const QXmppElement& e : message.extensions()) {
        if (e.tagName() == QLatin1String("refused") &&
            e.attribute(QStringLiteral("xmlns")) == QLatin1String(StanzaGuard::kNamespace)) {
            qWarning().noquote() << "imsdk: refused a message from" << message.from() << "id"
                                 << message.id() << "-" << e.attribute(QStringLiteral("reason"));
            return;
        }
    }
    if (engine_->receipts()->handle(message)) return;
    batcher_->open();
    if (QXmppUtils::jidToBareJid(message.from()) == engine_->domain()) return push(message);
    TribeRooms* tribes = engine_->tribes();
    if (message.type() == QXmppMessage::GroupChat) {
        tribes->handleGroupMessage(message);
        return;
    }
    if (tribes->handleInvitation(message)) return;
    if (message.type() == QXmppMessage::Headline) return;
    // The server's archive id, when our own archive stamped it.
    const QString archiveId = message.stanzaIdBy() == engine_->bareJid(engine_->account())
                                  ? message.stanzaId()
                                  : QString();
    incoming_->store(message, archiveId, message.stamp(), Source::Live);
}

void StanzaRouter::push(const QXmppMessage& message) {
    ImEngine::Callbacks& callbacks = engine_->callbacks();
    if (callbacks.pushMsgs.is_null()) return;
    openim::XPushMsg push;
    push.msgId = fromQ(message.id());
    push.msgTime = (message.stamp().isValid() ? message.stamp() : QDateTime::currentDateTimeUtc())
                       .toSecsSinceEpoch();
    push.subject = fromQ(message.subject());
    push.content = fromQ(message.body());
    callbacks.pushMsgs.Run({push});
}

void StanzaRouter::onCarbon(const QXmppMessage& message) {
    incoming_->store(message, QString(), QDateTime(), Source::Live);
}

void StanzaRouter::onIq(const QXmppIq& iq) {
    if (engine_->roomHealth()->handleIq(iq)) return;
    presence_->handleIq(iq);
}

void StanzaRouter::onArchived(const QString& queryId, const QString& archiveId,
                              const QXmppMessage& message, const QDateTime& stamp) {
    batcher_->open();
    if (engine_->tribes()->messages()->handleArchived(queryId, archiveId, message, stamp)) return;
    if (catchUp_->isQuery(queryId))
        incoming_->store(message, archiveId, stamp, Source::CatchUp, catchUp_->order());
    else if (history_->isQuery(queryId))
        incoming_->store(message, archiveId, stamp, Source::History, history_->order());
}

void StanzaRouter::onArchiveFinished(const QString& queryId, bool ok, bool complete,
                                     const QString& first, const QString& last) {
    if (engine_->tribes()->messages()->handleArchiveFinished(queryId, ok, complete, first, last))
        return;
    if (catchUp_->handleFinished(queryId, ok, complete, last)) return;
    history_->handleFinished(queryId, ok, complete, first);
}
