// One-to-one messages received: decoded, checked, stored once and reported after the commit.
#include "sdk/incoming_messages.h"

#include <QXmppMessage.h>
#include <QXmppUtils.h>
#include <QCryptographicHash>
#include <QDebug>

#include "openim/im_message_content.h"
#include "sdk/archive_catch_up.h"
#include "sdk/delivery_receipts.h"
#include "sdk/im_engine.h"
#include "sdk/message_codec.h"
#include "sdk/store_batcher.h"
#include "sdk/tribe_rooms.h"
#include "store/archive_order.h"

IncomingMessages::IncomingMessages(ImEngine* engine, StoreBatcher* batcher, ArchiveCatchUp* catchUp)
    : QObject(engine), engine_(engine), batcher_(batcher), catchUp_(catchUp) {}

void IncomingMessages::store(const QXmppMessage& message, const QString& archiveId,
                             const QDateTime& stamp, Source source, ArchiveOrder* order) {
    TribeRooms* tribes = engine_->tribes();
    if (source != Source::History && tribes->handleNotice(message, archiveId, stamp)) {
        if (!archiveId.isEmpty()) catchUp_->markArchived(archiveId);
        return;
    }
    // A live message with a delay stamp was queued by the server while we were away: the
    // offline store, or the queue of a session that died and was replaced by this one
    // (re-sent, "Resent"). It belongs among the messages the catch-up brings, before what
    // came live on this session, not after them. The catch-up places each message after
    // the one the archive listed before it, so the delayed ones wait for it to end; then
    // those it brought are copies that mark their place and the rest go after them.
    if (source == Source::Live && stamp.isValid() && !order) {
        if (catchUp_->running() && held_.size() < kMaxHeld) {
            held_.append({message, archiveId, stamp});
            return;
        }
        order = catchUp_->order();
    }
    QString problem;
    std::optional<StoredMessage> decoded = MessageCodec::decode(message, &problem);
    if (!decoded) {
        if (!problem.isEmpty()) logRefused(message, problem);
        return;
    }
    if (!problem.isEmpty()) logRefused(message, problem);
    StoredMessage m = *decoded;
    const QString& account = engine_->account();
    const QString& domain = engine_->domain();
    const QString own = engine_->bareJid(account);
    const bool outgoing = QXmppUtils::jidToBareJid(message.from()) == own ||
                          (message.from().isEmpty() && !message.to().isEmpty());
    const QString other = QXmppUtils::jidToBareJid(outgoing ? message.to() : message.from());
    if (other.isEmpty() || QXmppUtils::jidToDomain(other) != domain)
        return logRefused(message, QStringLiteral("not of the company's domain ") + domain);
    m.peer = QXmppUtils::jidToUser(other);
    if (m.peer.isEmpty()) return logRefused(message, QStringLiteral("no account in the address"));
    const QString addressed = m.peer;
    if (!relayedPeer(message, outgoing, m.kind, &m.peer, &problem))
        return logRefused(message, problem);
    if (m.kind == openim::kContentCustom && MessageCodec::speaksForCompany(m.content) &&
        (outgoing || tribes->authority().isEmpty() || addressed != tribes->authority())) {
        qWarning().noquote() << "imsdk: message from" << message.from() << "id" << message.id()
                             << "is a card only the company's back end may send; kept as text";
        if (!MessageCodec::keepAsText(m)) return;
    }
    m.outgoing = outgoing;
    m.sender = outgoing ? account : m.peer;
    m.time = (stamp.isValid() ? stamp : QDateTime::currentDateTimeUtc()).toSecsSinceEpoch();
    m.stanzaId = archiveId;
    m.originId = message.originId().isEmpty() ? message.id() : message.originId();
    // A relayed message is archived with the relaying account, not with its conversation's
    // peer, so its archive id cannot anchor a page of that peer's archive (the server would
    // not find it there); its origin id keeps it from being stored twice.
    if (m.peer != addressed && !m.originId.isEmpty()) m.stanzaId.clear();
    m.unread = !outgoing && source != Source::History;
    m.pendingMedia = MessageCodec::isMedia(m.kind) && !outgoing && source != Source::History;
    std::optional<quint64> id;
    QList<StoredMessage> rows = MessageCodec::rows(m);
    if (rows.size() > 1)
        qInfo().noquote() << "imsdk: long text from" << message.from() << "id" << message.id()
                          << "shown in" << rows.size() << "parts";
    for (StoredMessage& row : rows)
        if (auto rowId = insertReceived(row, message, source, order); rowId && !id) id = rowId;
    if (!archiveId.isEmpty() && source != Source::History) catchUp_->markArchived(archiveId);
    // Receipted once stored (a copy too: the sender may not have had the first receipt).
    // Not for a relayed card: its carrier is the back end, not a colleague's client.
    if (!outgoing && source != Source::History && m.peer == addressed) {
        DeliveryReceipts* receipts = engine_->receipts();
        const QString peer = m.peer, originId = m.originId;
        const qint64 time = m.time;
        batcher_->afterCommit(
            [receipts, peer, originId, time] { receipts->stored(peer, originId, time); });
    }
    if (!id || !m.unread) return;
    if (m.pendingMedia) {
        const quint64 stored = *id;
        ImEngine* engine = engine_;
        batcher_->afterCommit([engine, stored] { engine->downloadStored(stored); });
        return;
    }
    engine_->notifyNew(m.peer);
}

void IncomingMessages::releaseDelayed() {
    if (held_.isEmpty()) return;
    const QList<Delayed> held = std::move(held_);
    held_.clear();
    batcher_->open();
    for (const Delayed& d : held)
        store(d.message, d.archiveId, d.stamp, Source::Live, catchUp_->order());
}

// The store keeps one message per sender and origin id. A second stanza under the same
// id is a copy (offline delivery and catch-up both bring it) only when it says the same;
// a client that reuses ids for new messages must not lose them.
std::optional<quint64> IncomingMessages::insertReceived(StoredMessage& m,
                                                        const QXmppMessage& message, Source source,
                                                        ArchiveOrder* order) {
    if (order) order->place(m);
    std::optional<quint64> id = insertOnce(m, message, source);
    if (id) batcher_->countStored();
    // Delayed live messages come from two queues at once, out of the archive's order: a
    // copy among them says nothing of where the next new one goes.
    if (order) order->placed(m, id.has_value(), source != Source::Live);
    return id;
}

std::optional<quint64> IncomingMessages::insertOnce(StoredMessage& m, const QXmppMessage& message,
                                                    Source source) {
    MessageStore& store = engine_->messageStore();
    std::optional<quint64> id = store.insert(m);
    if (id || m.originId.isEmpty()) return id;
    const std::optional<StoredMessage> earlier = store.byOrigin(m.sender, m.originId);
    const bool same =
        !earlier ||
        (earlier->kind == m.kind &&
         (MessageCodec::isMedia(m.kind) ? earlier->url == m.url : earlier->content == m.content));
    if (same) {
        if (source == Source::Live && !m.outgoing)
            logRefused(message, QStringLiteral("a copy of a message already received"));
        return std::nullopt;
    }
    const QByteArray digest = QCryptographicHash::hash(
        (QString::number(m.kind) + m.content + m.url).toUtf8(), QCryptographicHash::Sha1);
    m.originId += QLatin1Char('#') + QString::fromLatin1(digest.toHex().left(12));
    qInfo().noquote() << "imsdk: message from" << message.from() << "reuses id" << message.id()
                      << "for other content; kept as a new message";
    return store.insert(m);
}

// The back end tells a colleague of a task given to them in the name of the company's task
// assistant, a directory entry nobody signs in as: its own account carries the card and
// names the conversation it belongs in. Only that account is believed, and only for
// custom content (the cards); a relay from anyone else would let them speak as another.
bool IncomingMessages::relayedPeer(const QXmppMessage& message, bool outgoing, int kind,
                                   QString* peer, QString* problem) const {
    QXmppElement relay;
    for (const QXmppElement& e : message.extensions())
        if (e.tagName() == QLatin1String("relay") &&
            e.attribute(QStringLiteral("xmlns")) == QLatin1String(MessageCodec::kNamespace)) {
            relay = e;
            break;
        }
    if (relay.isNull()) return true;
    const QString authority = engine_->tribes()->authority();
    if (outgoing || authority.isEmpty() || *peer != authority) {
        *problem = QStringLiteral("relayed by someone other than the company's back end");
        return false;
    }
    const QString account = relay.attribute(QStringLiteral("for"));
    bool numeric = false;
    account.toULongLong(&numeric);
    // Directory ids only: the client knows colleagues by them.
    if (!numeric || account.size() > 20 || account == engine_->account()) {
        *problem = QStringLiteral("relayed for an unusable account");
        return false;
    }
    if (kind != openim::kContentCustom) {
        *problem = QStringLiteral("relayed content that is not a card");
        return false;
    }
    *peer = account;
    return true;
}

void IncomingMessages::logRefused(const QXmppMessage& message, const QString& why) {
    qWarning().noquote() << "imsdk: message from" << message.from() << "id" << message.id()
                         << "not shown:" << why;
}
