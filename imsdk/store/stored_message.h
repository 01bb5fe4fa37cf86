#pragma once

#include <QString>
#include <QtGlobal>

// One row of the message store. `peer` is the other side's account; for a message we sent
// the sender is our own account.
struct StoredMessage {
    quint64 id = 0;
    QString peer;
    QString sender;
    bool outgoing = false;
    int kind = 1;
    QString content;
    QString summary;
    QString url;
    qint64 fileSize = 0;
    int width = 0;
    int height = 0;
    qint64 time = 0;  // seconds since 1970
    // The place among messages of the same peer and second: the server stamps only to the
    // second, so its order within one comes from the archive's order and then arrival.
    // 0: after everything stored so far.
    qint64 seq = 0;
    bool unread = false;
    QString stanzaId;           // the server archive's id, empty until known
    QString originId;           // the sender's own id of the stanza
    bool pendingMedia = false;  // media whose download has not finished
};
