// The send path: drafts checked and completed, media uploaded first, stanzas sent and stored,
// "sent" on the server's confirmation.
#include "sdk/outgoing_messages.h"

#include <QXmppMessage.h>
#include <QDateTime>
#include <QFileInfo>
#include <QUuid>

#include "openim/im_message_content.h"
#include "sdk/delivery_receipts.h"
#include "sdk/message_codec.h"
#include "sdk/stream_acks.h"
#include "sdk/tribe_rooms.h"
#include "sdk/upload_slots.h"
#include "sdk/wide_text.h"

OutgoingMessages::OutgoingMessages(ImEngine* engine, UploadSlots* uploads)
    : QObject(engine), engine_(engine), uploads_(uploads) {}

void OutgoingMessages::send(const QString& peer, StoredMessage draft, const QString& file,
                            ImEngine::Sent done) {
    draft.peer = peer;
    draft.sender = engine_->account();
    draft.outgoing = true;
    draft.unread = false;
    draft.time = QDateTime::currentDateTimeUtc().toSecsSinceEpoch();
    draft.originId = QUuid::createUuid().toString(QUuid::WithoutBraces);
    auto fail = [&](int code, const wchar_t* why) {
        if (done) done(draft, openim::ResultCode(code, why), openim::ResultCode());
    };
    if (!engine_->isOnline()) return fail(openim::ResultCode::kNotLoggedIn, L"not logged in");
    if (peer.isEmpty()) return fail(openim::ResultCode::kInvalidArgument, L"no peer");
    TribeRooms* tribes = engine_->tribes();
    if (TribeRooms::isKey(peer) && !tribes->isJoined(TribeRooms::idOfKey(peer))) {
        // The room is still being joined (just after sign-in): the send waits for it.
        tribes->whenJoined(TribeRooms::idOfKey(peer), [this, peer, draft, file, done](bool in) {
            if (in) {
                send(peer, draft, file, done);
            } else if (done) {
                done(draft,
                     openim::ResultCode(openim::ResultCode::kNotFound, L"not in the tribe's room"),
                     openim::ResultCode());
            }
        });
        return;
    }
    const bool media = MessageCodec::isMedia(draft.kind);
    if (!media) {
        // What the sender keeps is what the receiver gets.
        draft.content = MessageCodec::wireText(draft.content);
        draft.summary = MessageCodec::wireText(draft.summary);
        if (draft.kind == openim::kContentText && draft.content.trimmed().isEmpty())
            return fail(openim::ResultCode::kInvalidArgument, L"empty text");
    }
    if (draft.content.size() > MessageCodec::kMaxBodyChars ||
        draft.summary.size() > MessageCodec::kMaxBodyChars)
        return fail(openim::ResultCode::kInvalidArgument, L"message too long");
    if (!media) {
        transmit(draft, done);
        return;
    }
    QFileInfo info(file);
    if (!info.isFile() || !info.isReadable())
        return fail(openim::ResultCode::kInvalidArgument, L"cannot read the file");
    draft.summary = info.fileName();
    draft.fileSize = info.size();
    draft.content = info.absoluteFilePath();
    uploads_->upload(draft, info.absoluteFilePath(), done,
                     [this](StoredMessage uploaded, const ImEngine::Sent& then) {
                         transmit(std::move(uploaded), then);
                     });
}

void OutgoingMessages::sessionEnded() {
    uploads_->sessionEnded();
    if (signingOut_) failAll(L"signed out before the server confirmed it");
}

void OutgoingMessages::sessionStarted() {
    signingOut_ = false;
    const QStringList ids = std::exchange(again_, {});
    if (!ids.isEmpty())
        qInfo().noquote() << "imsdk: sending again" << ids.size()
                          << "messages the server had not confirmed";
    for (const QString& id : ids) retransmit(id);
}

void OutgoingMessages::whenConfirmed(std::function<void()> then) {
    signingOut_ = true;
    if (written_.isEmpty() || !engine_->isOnline()) {
        failAll(L"signed out before the server confirmed it");
        then();
        return;
    }
    waiters_.push_back(std::move(then));
    if (!waitLimit_.isActive()) {
        waitLimit_.setSingleShot(true);
        connect(&waitLimit_, &QTimer::timeout, this, &OutgoingMessages::releaseWaiters,
                Qt::UniqueConnection);
        waitLimit_.start(kLogOutWaitMs);
    }
}

void OutgoingMessages::accountChanged() {
    failAll(L"another account signed in");
    signingOut_ = false;
}

// keptOrder_ may name messages no longer kept (reflected, refused): they go from its front
// here, and the whole list is rebuilt once most of it is such.
void OutgoingMessages::keep(const Written& w) {
    if (reflectedEarly_.remove(w.draft.originId)) return;  // already in the room
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    while (!keptOrder_.isEmpty() &&
           (!kept_.contains(keptOrder_.first()) || kept_.size() >= kKeptForRooms ||
            kept_.value(keptOrder_.first()).deadline + kKeptForRoomsMs - kConfirmMs < now))
        kept_.remove(keptOrder_.takeFirst());
    if (keptOrder_.size() > 2 * kept_.size() + 64) {
        QStringList live;
        for (const QString& id : std::as_const(keptOrder_))
            if (kept_.contains(id)) live << id;
        keptOrder_ = live;
    }
    Written copy = w;
    copy.deadline = now + kConfirmMs;  // measured from the confirmation
    kept_.insert(w.draft.originId, copy);
    keptOrder_.append(w.draft.originId);
}

void OutgoingMessages::roomRefused(const QString& originId) {
    auto it = kept_.find(originId);
    if (it == kept_.end()) {
        if (written_.contains(originId) && !again_.contains(originId)) retransmit(originId);
        return;
    }
    Written w = it.value();
    kept_.erase(it);
    sendAgain(std::move(w));
}

void OutgoingMessages::roomRejoining(quint64 tribe) {
    const QString key = TribeRooms::key(tribe);
    QStringList again;
    QSet<QString> seen;
    for (const QString& id : std::as_const(keptOrder_)) {
        auto it = kept_.constFind(id);
        if (it != kept_.cend() && it->draft.peer == key && !seen.contains(id)) {
            seen.insert(id);
            again << id;
        }
    }
    if (again.isEmpty()) return;
    qInfo().noquote() << "imsdk: room" << tribe << "never reflected" << again.size()
                      << "of our messages; they go again once we are back in";
    for (const QString& id : std::as_const(again)) {
        sendAgain(kept_.take(id));
    }
}

// The reflection may come before the server's acknowledgement of the message.
void OutgoingMessages::roomReflected(const QString& originId) {
    if (!kept_.remove(originId) && written_.contains(originId)) reflectedEarly_.insert(originId);
}

void OutgoingMessages::sendAgain(Written w) {
    const QString originId = w.draft.originId;
    // Already reported sent; only a failure to get it through now is news.
    if (ImEngine::Sent reported = w.done)
        w.done = [reported](const StoredMessage& m, openim::ResultCode sent,
                            openim::ResultCode uploaded) {
            if (!sent.ok()) reported(m, sent, uploaded);
        };
    w.deadline = QDateTime::currentMSecsSinceEpoch() + kConfirmMs;
    written_.insert(originId, w);
    if (!expiry_.isActive()) expiry_.start(1000);
    retransmit(originId);
}

bool OutgoingMessages::writeAgain(const StoredMessage& m) {
    QXmppMessage stanza = MessageCodec::encode(m, engine_->bareJid(m.peer));
    // Its first time, so that the receiver places it where it was written.
    stanza.setStamp(QDateTime::fromSecsSinceEpoch(m.time, Qt::UTC));
    return engine_->xmppClient()->sendPacket(stanza);
}

void OutgoingMessages::confirmed(const QString& originId) {
    if (written_.contains(originId)) finish(originId, openim::ResultCode());
}

void OutgoingMessages::unconfirmed(const QStringList& originIds) {
    for (const QString& id : originIds)
        if (written_.contains(id) && !again_.contains(id)) again_.append(id);
}

void OutgoingMessages::transmit(StoredMessage draft, const ImEngine::Sent& done) {
    if (!engine_->isOnline()) {
        if (done)
            done(draft, openim::ResultCode(openim::ResultCode::kNotLoggedIn), openim::ResultCode());
        return;
    }
    Written w{std::move(draft), done, QDateTime::currentMSecsSinceEpoch() + kConfirmMs};
    StreamAcks* acks = engine_->streamAcks();
    if (!write(w)) {
        if (done)
            done(w.draft, openim::ResultCode(openim::ResultCode::kNetworkError),
                 openim::ResultCode());
        return;
    }
    const bool followed = acks && acks->isWaiting(w.draft.originId);
    MessageStore& store = engine_->messageStore();
    w.draft.seq = store.nextSeq();
    if (std::optional<quint64> id = store.insert(w.draft)) w.draft.id = *id;
    if (!followed) {
        // A stream without acknowledgements: written is all that can be known.
        if (!TribeRooms::isKey(w.draft.peer)) engine_->receipts()->await(w.draft);
        if (done) done(w.draft, openim::ResultCode(), openim::ResultCode());
        return;
    }
    const StoredMessage shown = w.draft;
    written_.insert(shown.originId, std::move(w));
    if (!expiry_.isActive()) {
        connect(&expiry_, &QTimer::timeout, this, &OutgoingMessages::expire, Qt::UniqueConnection);
        expiry_.start(1000);
    }
    if (done) done(shown, openim::ResultCode(openim::ResultCode::kPending), openim::ResultCode());
}

bool OutgoingMessages::write(Written& w) {
    const bool toTribe = TribeRooms::isKey(w.draft.peer);
    TribeRooms* tribes = engine_->tribes();
    QXmppMessage stanza =
        MessageCodec::encode(w.draft, toTribe ? tribes->roomJid(TribeRooms::idOfKey(w.draft.peer))
                                              : engine_->bareJid(w.draft.peer));
    if (toTribe) stanza.setType(QXmppMessage::GroupChat);
    if (!engine_->xmppClient()->sendPacket(stanza)) return false;
    if (StreamAcks* acks = engine_->streamAcks()) acks->follow(w.draft.originId);
    return true;
}

void OutgoingMessages::retransmit(const QString& originId) {
    auto it = written_.find(originId);
    if (it == written_.end()) return;
    const QString peer = it->draft.peer;
    TribeRooms* tribes = engine_->tribes();
    if (TribeRooms::isKey(peer) && !tribes->isJoined(TribeRooms::idOfKey(peer))) {
        // The room lets us in again first.
        if (awaitingRoom_.contains(originId)) return;
        awaitingRoom_.insert(originId);
        tribes->whenJoined(TribeRooms::idOfKey(peer), [this, originId](bool in) {
            awaitingRoom_.remove(originId);
            if (in)
                retransmit(originId);
            else
                finish(originId, openim::ResultCode(openim::ResultCode::kNotFound,
                                                    L"not in the tribe's room"));
        });
        return;
    }
    if (!engine_->isOnline() || !write(*it)) {
        if (!again_.contains(originId)) again_.append(originId);
        return;
    }
    StreamAcks* acks = engine_->streamAcks();
    if (!acks || !acks->isWaiting(originId)) finish(originId, openim::ResultCode());
}

void OutgoingMessages::finish(const QString& originId, const openim::ResultCode& result) {
    auto it = written_.find(originId);
    if (it == written_.end()) return;
    Written w = std::move(*it);
    written_.erase(it);
    again_.removeAll(originId);
    if (!result.ok()) {
        reflectedEarly_.remove(originId);
        // Not sent: the store does not keep it as if it were; the user sends it again.
        if (StreamAcks* acks = engine_->streamAcks()) acks->forget(originId);
        if (w.draft.id) engine_->messageStore().remove(w.draft.id);
        qWarning().noquote() << "imsdk: a message to" << w.draft.peer
                             << "was not confirmed by the server:" << wide_text::toQ(result.text);
    }
    if (result.ok() && TribeRooms::isKey(w.draft.peer)) keep(w);
    if (result.ok() && !TribeRooms::isKey(w.draft.peer)) engine_->receipts()->await(w.draft);
    if (w.done) w.done(w.draft, result, openim::ResultCode());
    if (written_.isEmpty()) {
        expiry_.stop();
        releaseWaiters();
    }
}

void OutgoingMessages::expire() {
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    QStringList late;
    for (auto it = written_.cbegin(); it != written_.cend(); ++it)
        if (it->deadline <= now) late << it.key();
    for (const QString& id : late)
        finish(id, openim::ResultCode(openim::ResultCode::kTimeout,
                                      L"the server did not confirm the message"));
}

void OutgoingMessages::failAll(const wchar_t* why) {
    const QStringList ids = written_.keys();
    for (const QString& id : ids)
        finish(id, openim::ResultCode(openim::ResultCode::kNetworkError, why));
    again_.clear();
}

void OutgoingMessages::releaseWaiters() {
    waitLimit_.stop();
    const std::vector<std::function<void()>> waiters = std::exchange(waiters_, {});
    for (const std::function<void()>& then : waiters) then();
}
