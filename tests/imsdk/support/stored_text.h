#pragma once

#include "store/stored_message.h"

// An unread text from `peer` for the store's tests, stamped `second` seconds after
// 1700000000.
inline StoredMessage storedText(const QString& peer, const QString& content,
                                const QString& originId, const QString& stanzaId = QString(),
                                qint64 second = 0) {
    StoredMessage m;
    m.peer = m.sender = peer;
    m.content = content;
    m.originId = originId;
    m.stanzaId = stanzaId;
    m.time = 1700000000 + second;
    m.unread = true;
    return m;
}
