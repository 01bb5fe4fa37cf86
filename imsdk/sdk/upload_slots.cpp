// Upload slots for outgoing pictures and files, and the uploads into them.
#include "sdk/upload_slots.h"

#include <QXmppHttpUploadIq.h>
#include <QXmppUploadRequestManager.h>
#include <QFileInfo>
#include <QMimeDatabase>

#include "sdk/media_transfer.h"
#include "sdk/wide_text.h"

UploadSlots::UploadSlots(ImEngine* engine, MediaTransfer* transfer)
    : QObject(engine), engine_(engine), transfer_(transfer) {}

void UploadSlots::upload(const StoredMessage& draft, const QString& file,
                         const ImEngine::Sent& done, Then then) {
    auto* manager = engine_->xmppClient()->findExtension<QXmppUploadRequestManager>();
    // Servers announce their upload service through discovery; until it is known (or if
    // the server does not list it) try the customary "upload.<domain>".
    const QString service =
        manager->serviceFound() ? QString() : QStringLiteral("upload.") + engine_->domain();
    const QString id =
        manager->requestUploadSlot(QFileInfo(file), QFileInfo(file).fileName(), service);
    if (id.isEmpty()) {
        if (done)
            done(draft, openim::ResultCode(),
                 openim::ResultCode(openim::ResultCode::kServerError, L"no upload slot"));
        return;
    }
    pending_.insert(id, {draft, file, done, std::move(then)});
}

void UploadSlots::onSlot(const QXmppHttpUploadSlotIq& slot) {
    if (!pending_.contains(slot.id())) return;
    Pending u = pending_.take(slot.id());
    const QString mime = QMimeDatabase().mimeTypeForFile(u.file).name();
    transfer_->upload(slot.putUrl(), slot.putHeaders(), u.file, mime,
                      [u, url = slot.getUrl()](bool ok, const QString& error) {
                          if (!ok) {
                              if (u.done)
                                  u.done(u.draft, openim::ResultCode(),
                                         openim::ResultCode(openim::ResultCode::kNetworkError,
                                                            wide_text::fromQ(error)));
                              return;
                          }
                          StoredMessage draft = u.draft;
                          draft.url = url.toString();
                          u.then(draft, u.done);
                      });
}

void UploadSlots::onSlotFailed(const QXmppHttpUploadRequestIq& request) {
    if (!pending_.contains(request.id())) return;
    Pending u = pending_.take(request.id());
    if (u.done)
        u.done(u.draft, openim::ResultCode(),
               openim::ResultCode(openim::ResultCode::kServerError, L"upload refused"));
}

void UploadSlots::sessionEnded() {
    const auto pending = std::exchange(pending_, {});
    for (const Pending& u : pending)
        if (u.done)
            u.done(u.draft, openim::ResultCode(openim::ResultCode::kNetworkError),
                   openim::ResultCode(openim::ResultCode::kNetworkError));
}
