#pragma once

#include <QHash>
#include <QObject>
#include <QString>
#include <functional>

#include "sdk/im_engine.h"

class MediaTransfer;
class QXmppHttpUploadRequestIq;
class QXmppHttpUploadSlotIq;

// Pictures and files on their way out: a slot asked of the server's upload service, the
// file put there, then the message handed on with the file's address. A failure is
// reported as the upload result. SDK thread only.
class UploadSlots : public QObject {
    Q_OBJECT
public:
    // What sends the message once its file is uploaded (draft.url set).
    using Then = std::function<void(StoredMessage draft, const ImEngine::Sent& done)>;

    UploadSlots(ImEngine* engine, MediaTransfer* transfer);

    void upload(const StoredMessage& draft, const QString& file, const ImEngine::Sent& done,
                Then then);
    void onSlot(const QXmppHttpUploadSlotIq& slot);
    void onSlotFailed(const QXmppHttpUploadRequestIq& request);
    // Fails the uploads still waiting for a slot; nothing on this stream will answer them.
    void sessionEnded();

private:
    struct Pending {
        StoredMessage draft;
        QString file;
        ImEngine::Sent done;
        Then then;
    };

    ImEngine* engine_;
    MediaTransfer* transfer_;
    QHash<QString, Pending> pending_;
};
