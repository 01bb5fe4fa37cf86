#pragma once

#include <QObject>
#include <QString>

#include "sdk/im_engine.h"

class UploadSlots;

// The send path of one-to-one and tribe messages: a draft is checked and completed (peer,
// time, origin id), waits for its tribe's room to let us in, has its picture or file
// uploaded first, and then goes out in transmit(): the one place where a message stanza
// leaves the client, is stored as sent and is reported. SDK thread only.
class OutgoingMessages : public QObject {
    Q_OBJECT
public:
    OutgoingMessages(ImEngine* engine, UploadSlots* uploads);

    // `draft` carries kind, content, summary and, for media, the size fields; `file` is the
    // picture or file to upload. `peer` is an account or a tribe's key.
    void send(const QString& peer, StoredMessage draft, const QString& file, ImEngine::Sent done);
    // The stream is gone: what waits on it fails.
    void sessionEnded();

private:
    void transmit(StoredMessage draft, const ImEngine::Sent& done);

    ImEngine* engine_;
    UploadSlots* uploads_;
};
