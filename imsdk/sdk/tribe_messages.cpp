#include "sdk/tribe_messages.h"

#include <QXmppUtils.h>
#include <QDebug>
#include <QTimer>

#include "openim/im_message_content.h"
#include "sdk/archive_extension.h"
#include "sdk/im_engine.h"
#include "sdk/message_codec.h"
#include "sdk/tribe_rooms.h"
#include "sdk/wide_text.h"

using wide_text::fromQ;

namespace {

QString lastKey(quint64 tribe) { return QStringLiteral("tribe_last:%1").arg(tribe); }

}  // namespace

TribeMessages::TribeMessages(ImEngine* engine, TribeRooms* rooms)
    : QObject(rooms),
      engine_(engine),
      rooms_(rooms),
      catchUpOrder_(engine->messageStore()),
      historyOrder_(engine->messageStore()),
      announceTimer_(new QTimer(this)) {
    // New messages are announced once per turn of the event loop, not once per row: a
    // catch-up page of a hundred is one report.
    announceTimer_->setSingleShot(true);
    announceTimer_->setInterval(0);
    connect(announceTimer_, &QTimer::timeout, this, &TribeMessages::flushAnnouncements);
}

void TribeMessages::accountOpened() {
    state_.clear();
    cursors_.clear();
}

void TribeMessages::sessionEnded() {
    for (auto it = state_.begin(); it != state_.end(); ++it) {
        it->catchUpQuery.clear();
        it->held.clear();  // the next catch-up brings them from the archive
    }
    catchUps_.clear();
    const auto queries = std::exchange(historyQueries_, {});
    for (const HistoryQuery& q : queries)
        deliverHistory(q, openim::ResultCode(openim::ResultCode::kNetworkError));
}

void TribeMessages::received(quint64 tribe, const QXmppMessage& message, const QString& sender) {
    const QString archiveId =
        message.stanzaIdBy() == rooms_->roomJid(tribe) ? message.stanzaId() : QString();
    RoomState& state = state_[tribe];
    if (!state.catchUpQuery.isEmpty()) {
        state.held.append(
            {message, sender, archiveId,
             message.stamp().isValid() ? message.stamp() : QDateTime::currentDateTimeUtc()});
        return;
    }
    store(tribe, message, sender, archiveId, message.stamp(), Source::Live);
}

void TribeMessages::store(quint64 tribe, const QXmppMessage& message, const QString& sender,
                          const QString& archiveId, const QDateTime& stamp, Source source) {
    QString problem;
    std::optional<StoredMessage> decoded = MessageCodec::decode(message, &problem);
    if (!problem.isEmpty())
        qWarning().noquote() << "imsdk: room" << tribe << "message" << message.id() << "from"
                             << sender << "not shown:" << problem;
    if (!decoded) return;
    StoredMessage m = *decoded;
    m.peer = TribeRooms::key(tribe);
    m.sender = sender;
    m.outgoing = sender == engine_->account();
    if (m.kind == openim::kContentCustom && MessageCodec::speaksForCompany(m.content) &&
        (rooms_->authority().isEmpty() || sender != rooms_->authority())) {
        qWarning().noquote() << "imsdk: room" << tribe << "message" << message.id() << "from"
                             << sender << "is a card only the company's back end may send; "
                             << "kept as text";
        if (!MessageCodec::keepAsText(m)) return;
    }
    m.time = (stamp.isValid() ? stamp : QDateTime::currentDateTimeUtc()).toSecsSinceEpoch();
    m.stanzaId = archiveId;
    m.originId = message.originId().isEmpty() ? message.id() : message.originId();
    if (m.outgoing) engine_->roomReflected(m.originId);
    m.unread = !m.outgoing && source != Source::History;
    m.pendingMedia = MessageCodec::isMedia(m.kind) && !m.outgoing && source != Source::History;
    ArchiveOrder* order = source == Source::CatchUp   ? &catchUpOrder_
                          : source == Source::History ? &historyOrder_
                                                      : nullptr;
    QList<StoredMessage> rows = MessageCodec::rows(m);
    if (rows.size() > 1)
        qInfo().noquote() << "imsdk: room" << tribe << "long text from" << sender << "id"
                          << message.id() << "shown in" << rows.size() << "parts";
    std::optional<quint64> id;
    for (StoredMessage& part : rows) {
        if (order) order->place(part);
        const std::optional<quint64> partId = engine_->messageStore().insert(part);
        if (order) order->placed(part, partId.has_value());
        if (partId && !id) id = partId;
    }
    // While a catch-up runs it moves the mark itself, page by page, so that a live message
    // cannot make it skip what the archive still holds.
    if (!archiveId.isEmpty() && source == Source::Live &&
        state_.value(tribe).catchUpQuery.isEmpty())
        engine_->messageStore().setMeta(lastKey(tribe), archiveId);
    if (!id || !m.unread) return;
    if (m.pendingMedia) {
        const quint64 stored = *id;
        engine_->afterCommit([this, stored] { engine_->downloadStored(stored); });
        return;
    }
    engine_->afterCommit([this, tribe] { announce(tribe); });
}

void TribeMessages::announce(quint64 tribe) {
    dirty_.insert(tribe);
    if (!announceTimer_->isActive()) announceTimer_->start();
}

void TribeMessages::flushAnnouncements() {
    const QSet<quint64> dirty = std::exchange(dirty_, {});
    if (rooms_->callbacks().message.is_null()) return;
    for (quint64 tribe : dirty) rooms_->callbacks().message.Run(openim::IMTribeID(tribe));
}

void TribeMessages::mediaFinished(const StoredMessage& m, bool ok, const QString& result) {
    const quint64 tribe = TribeRooms::idOfKey(m.peer);
    if (!rooms_->callbacks().download.is_null()) {
        openim::DownloadTribeMediaResult r;
        r.msgId = m.id;
        r.tribe = openim::IMTribeID(tribe);
        r.sender = engine_->userId(m.sender);
        r.url = fromQ(m.url);
        r.localPath = ok ? fromQ(result) : prg::PrgStringT<wchar_t>();
        rooms_->callbacks().download.Run(
            ok ? openim::ResultCode()
               : openim::ResultCode(openim::ResultCode::kNetworkError, fromQ(result)),
            r);
    }
    if (m.unread) announce(tribe);
}

// ---- archive ----

void TribeMessages::startCatchUp(quint64 tribe) {
    RoomState& room = state_[tribe];
    if (!room.catchUpQuery.isEmpty()) return;
    const QString last = engine_->messageStore().meta(lastKey(tribe));
    const qint64 since = rooms_->since(tribe);
    const QDateTime start =
        last.isEmpty() && since > 0 ? QDateTime::fromSecsSinceEpoch(since, Qt::UTC) : QDateTime();
    if (last.isEmpty() && !start.isValid()) return;
    catchUpOrder_.start(ArchiveOrder::Direction::Forward, TribeRooms::key(tribe));
    const QString id = engine_->archive()->query(QString(), QString(), last, kCatchUpPage,
                                                 rooms_->roomJid(tribe), start);
    if (id.isEmpty()) return;
    room.catchUpQuery = id;
    room.catchUpFromStoredId = !last.isEmpty();
    catchUps_.insert(id, tribe);
}

// What came live meanwhile goes in now; what the archive already brought is dropped as a
// duplicate.
void TribeMessages::catchUpEnded(quint64 tribe) {
    auto it = state_.find(tribe);
    if (it == state_.end()) return;
    const QList<HeldMessage> held = std::exchange(it->held, {});
    for (const HeldMessage& h : held)
        store(tribe, h.message, h.sender, h.archiveId, h.received, Source::Live);
}

bool TribeMessages::handleArchived(const QString& queryId, const QString& archiveId,
                                   const QXmppMessage& message, const QDateTime& stamp) {
    quint64 tribe = catchUps_.value(queryId);
    Source source = Source::CatchUp;
    if (tribe == 0) {
        auto q = historyQueries_.constFind(queryId);
        if (q == historyQueries_.cend()) return false;
        tribe = q->tribe;
        source = Source::History;
    }
    if (message.body().isEmpty()) return true;  // subject changes and status lines
    const QString nick = QXmppUtils::jidToResource(message.from());
    const QString sender = rooms_->senderOf(tribe, nick, message, true);
    if (sender.isEmpty()) {
        qWarning().noquote() << "imsdk: room" << tribe << "archived message" << archiveId << "from"
                             << nick << "dropped: no sender the server vouches for";
        return true;
    }
    store(tribe, message, sender, archiveId, stamp, source);
    return true;
}

bool TribeMessages::handleArchiveFinished(const QString& queryId, bool ok, bool complete,
                                          const QString& first, const QString& last) {
    if (catchUps_.contains(queryId)) {
        const quint64 tribe = catchUps_.take(queryId);
        RoomState& room = state_[tribe];
        room.catchUpQuery.clear();
        if (!ok && room.catchUpFromStoredId && rooms_->isJoined(tribe)) {
            // From the second of the newest stored message (inclusive: the store keeps one
            // copy of what it already has), so what came while the user was away is read.
            room.catchUpFromStoredId = false;
            const QString key = TribeRooms::key(tribe);
            const qint64 newest = engine_->messageStore().newestTime(key);
            const qint64 from = newest > 0 ? newest : rooms_->since(tribe);
            qInfo().noquote() << "imsdk: room" << tribe
                              << "refused to read on from a stored id; asking by time";
            engine_->messageStore().setMeta(lastKey(tribe), QString());
            const QString retry =
                from > 0 ? engine_->archive()->query(QString(), QString(), QString(), kCatchUpPage,
                                                     rooms_->roomJid(tribe),
                                                     QDateTime::fromSecsSinceEpoch(from, Qt::UTC))
                         : QString();
            if (!retry.isEmpty()) {
                room.catchUpQuery = retry;
                catchUps_.insert(retry, tribe);
                return true;
            }
        }
        if (!ok) {
            qWarning().noquote() << "imsdk: room" << tribe << "refused its archive";
            catchUpEnded(tribe);
            return true;
        }
        room.catchUpFromStoredId = false;
        if (!last.isEmpty()) engine_->messageStore().setMeta(lastKey(tribe), last);
        if (!complete && !last.isEmpty() && rooms_->isJoined(tribe)) {
            const QString next = engine_->archive()->query(QString(), QString(), last, kCatchUpPage,
                                                           rooms_->roomJid(tribe));
            if (!next.isEmpty()) {
                room.catchUpQuery = next;
                catchUps_.insert(next, tribe);
                return true;
            }
        }
        catchUpEnded(tribe);
        return true;
    }
    auto it = historyQueries_.find(queryId);
    if (it == historyQueries_.end()) return false;
    HistoryQuery q = *it;
    historyQueries_.erase(it);
    Cursor& cursor = cursors_[q.tribe];
    if (!ok) {
        if (q.fromStoredId && rooms_->isJoined(q.tribe)) {
            qInfo().noquote() << "imsdk: room" << q.tribe
                              << "refused to page before a stored id; asking by time";
            askArchiveBefore(q, QString());
        } else {
            deliverHistory(q, openim::ResultCode(openim::ResultCode::kServerError));
        }
        return true;
    }
    if (complete || first.isEmpty()) cursor.archiveDone = true;
    const auto rows =
        engine_->messageStore().page(TribeRooms::key(q.tribe), cursor.time, cursor.seq, q.count);
    if (rows.size() >= q.count || cursor.archiveDone) {
        deliverHistory(q, openim::ResultCode());
        return true;
    }
    historyOrder_.start(ArchiveOrder::Direction::Backward, TribeRooms::key(q.tribe));
    const QString next = engine_->archive()->query(QString(), first, QString(),
                                                   std::max(q.count, 20), rooms_->roomJid(q.tribe));
    q.fromStoredId = false;
    if (next.isEmpty())
        deliverHistory(q, openim::ResultCode(openim::ResultCode::kNetworkError));
    else
        historyQueries_.insert(next, q);
    return true;
}

void TribeMessages::history(quint64 tribe, int count, const HistoryCallback& done) {
    count = std::max(1, count);
    Cursor& cursor = cursors_[tribe];
    const QString peer = TribeRooms::key(tribe);
    const auto rows = engine_->messageStore().page(peer, cursor.time, cursor.seq, count);
    const HistoryQuery q{tribe, count, done};
    if (rows.size() >= count || cursor.archiveDone || !rooms_->isJoined(tribe)) {
        deliverHistory(q, openim::ResultCode());
        return;
    }
    askArchiveBefore(q, engine_->messageStore().oldestStanzaId(peer));
}

// The room's archive is asked only for what is older than everything stored: before the
// oldest archive id the store keeps or, without one (or when the room no longer knows it: a
// new server, an emptied archive), up to the second of the oldest stored message. The store
// drops what it already has.
void TribeMessages::askArchiveBefore(HistoryQuery q, const QString& storedId) {
    const QString peer = TribeRooms::key(q.tribe);
    historyOrder_.start(ArchiveOrder::Direction::Backward, peer);
    q.fromStoredId = !storedId.isEmpty();
    const qint64 oldest = q.fromStoredId ? 0 : engine_->messageStore().oldestTime(peer);
    const QString id = engine_->archive()->query(
        QString(), storedId, QString(), std::max(q.count, 20), rooms_->roomJid(q.tribe),
        QDateTime(), oldest > 0 ? QDateTime::fromSecsSinceEpoch(oldest, Qt::UTC) : QDateTime());
    if (id.isEmpty()) {
        deliverHistory(q, openim::ResultCode(openim::ResultCode::kNetworkError));
        return;
    }
    historyQueries_.insert(id, q);
}

// What the store holds goes out whatever the archive said: a failing archive only ends the
// paging once nothing older is stored.
void TribeMessages::deliverHistory(const HistoryQuery& q, openim::ResultCode result) {
    Cursor& cursor = cursors_[q.tribe];
    const auto rows =
        engine_->messageStore().page(TribeRooms::key(q.tribe), cursor.time, cursor.seq, q.count);
    if (!rows.isEmpty()) {
        cursor.time = rows.first().time;
        cursor.seq = rows.first().seq;
        result = openim::ResultCode();
    }
    std::vector<openim::IMTribeMessage> page;
    for (const StoredMessage& m : rows) page.push_back(toIM(m));
    if (!q.done.is_null()) q.done.Run(fromQ(QString::number(q.tribe)), result, page);
}

// ---- unread ----

QList<quint64> TribeMessages::unreadTribes() {
    QList<quint64> out;
    for (const QString& peer : engine_->messageStore().unreadPeers())
        if (TribeRooms::isKey(peer)) out << TribeRooms::idOfKey(peer);
    return out;
}

std::vector<openim::IMTribeMessage> TribeMessages::unread(quint64 tribe) {
    std::vector<openim::IMTribeMessage> out;
    for (const StoredMessage& m : engine_->messageStore().unread(TribeRooms::key(tribe)))
        out.push_back(toIM(m));
    return out;
}

openim::IMTribeMessage TribeMessages::toIM(const StoredMessage& m) const {
    const openim::IMMessage single = engine_->toIM(m);
    openim::IMTribeMessage im;
    im.msgId = single.msgId;
    im.msgTime = single.msgTime;
    im.msgSeq = single.msgSeq;
    im.tribe = openim::IMTribeID(TribeRooms::idOfKey(m.peer));
    im.sender = single.sender;
    im.content = single.content;
    return im;
}
