// Received pictures and files fetched into the receive folder and reported.
#include "sdk/media_downloads.h"

#include <QDebug>
#include <QPointer>
#include <QTimer>
#include <QUrl>

#include "sdk/im_engine.h"
#include "sdk/media_transfer.h"
#include "sdk/message_codec.h"
#include "sdk/receive_folder.h"
#include "sdk/tribe_messages.h"
#include "sdk/tribe_rooms.h"
#include "sdk/wide_text.h"

using wide_text::fromQ;

MediaDownloads::MediaDownloads(ImEngine* engine, MediaTransfer* transfer)
    : QObject(engine), engine_(engine), transfer_(transfer) {}

void MediaDownloads::start(quint64 id, bool notify) {
    MessageStore& store = engine_->messageStore();
    std::optional<StoredMessage> m = store.message(id);
    if (!m) return;
    const QString target = ReceiveFolder(receiveFolder_).freePath(m->summary);
    // Later messages of the sender wait for the picture, but only so long: then they are
    // shown, and the picture fills its row when it arrives.
    QPointer<QTimer> wait;
    if (notify && m->unread && !TribeRooms::isKey(m->peer)) {
        wait = new QTimer(this);
        wait->setSingleShot(true);
        connect(wait, &QTimer::timeout, this, [this, id, peer = m->peer] {
            if (!engine_->messageStore().releaseMedia(id)) return;
            qInfo().noquote() << "imsdk: message" << id << "from" << peer
                              << "still downloading after" << kWaitMs / 1000
                              << "s; what came after it is shown";
            engine_->notifyNew(peer);
        });
        wait->start(kWaitMs);
    }
    transfer_->download(
        QUrl(m->url), target, [this, id, notify, m, wait](bool ok, const QString& result) {
            const bool released = !wait || !wait->isActive();
            if (wait) wait->deleteLater();
            engine_->messageStore().finishMedia(id, ok ? result : QString());
            if (TribeRooms::isKey(m->peer)) {
                engine_->tribes()->messages()->mediaFinished(*m, ok, result);
                return;
            }
            ImEngine::Callbacks& callbacks = engine_->callbacks();
            if (!callbacks.download.is_null()) {
                openim::DownloadMediaResult r;
                r.msgId = id;
                r.sender = engine_->userId(m->sender);
                r.url = fromQ(m->url);
                r.localPath = ok ? fromQ(result) : prg::PrgStringT<wchar_t>();
                callbacks.download.Run(
                    ok ? openim::ResultCode()
                       : openim::ResultCode(openim::ResultCode::kNetworkError, fromQ(result)),
                    r);
            }
            // After the commit of a batch that may be open around this write.
            if (notify && m->unread && !(wait && released)) engine_->notifyNew(m->peer);
        });
}

void MediaDownloads::resumePending() {
    for (const StoredMessage& m : engine_->messageStore().pendingMedia()) start(m.id, true);
}

void MediaDownloads::download(quint64 msgId) {
    std::optional<StoredMessage> m = engine_->messageStore().message(msgId);
    if (!m || !MessageCodec::isMedia(m->kind) || m->outgoing) {
        ImEngine::Callbacks& callbacks = engine_->callbacks();
        if (!callbacks.download.is_null()) {
            openim::DownloadMediaResult r;
            r.msgId = msgId;
            callbacks.download.Run(openim::ResultCode(openim::ResultCode::kNotFound), r);
        }
        return;
    }
    start(msgId, false);
}
