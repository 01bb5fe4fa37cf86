// The send path: drafts checked and completed, media uploaded first, stanzas sent and stored.
#include "sdk/outgoing_messages.h"

#include <QXmppMessage.h>
#include <QFileInfo>
#include <QUuid>

#include "openim/im_message_content.h"
#include "sdk/message_codec.h"
#include "sdk/tribe_rooms.h"
#include "sdk/upload_slots.h"

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

void OutgoingMessages::sessionEnded() { uploads_->sessionEnded(); }

void OutgoingMessages::transmit(StoredMessage draft, const ImEngine::Sent& done) {
    if (!engine_->isOnline()) {
        if (done)
            done(draft, openim::ResultCode(openim::ResultCode::kNotLoggedIn), openim::ResultCode());
        return;
    }
    const bool toTribe = TribeRooms::isKey(draft.peer);
    TribeRooms* tribes = engine_->tribes();
    QXmppMessage stanza =
        MessageCodec::encode(draft, toTribe ? tribes->roomJid(TribeRooms::idOfKey(draft.peer))
                                            : engine_->bareJid(draft.peer));
    if (toTribe) stanza.setType(QXmppMessage::GroupChat);
    const bool sent = engine_->xmppClient()->sendPacket(stanza);
    if (sent) {
        MessageStore& store = engine_->messageStore();
        draft.seq = store.nextSeq();
        if (std::optional<quint64> id = store.insert(draft)) draft.id = *id;
    }
    if (done)
        done(draft,
             openim::ResultCode(sent ? openim::ResultCode::kOk : openim::ResultCode::kNetworkError),
             openim::ResultCode());
}
