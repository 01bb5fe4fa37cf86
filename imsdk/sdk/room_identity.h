#pragma once

#include <QString>

class QXmppMessage;

// Who sent a room message. The room's own presence tells each occupant's real address (our
// rooms show real addresses to members), and only that is taken: what a message says about
// its sender never is. The archive keeps a room message as its sender wrote it, elements
// claiming another sender included, and the server appends its own element naming the
// sender's real address (Prosody's room archive does so in rooms that show real addresses):
// of those elements only the last one is the server's.
class RoomIdentity {
public:
    // The account of a real address on `domain`; empty for any other address.
    static QString accountOf(const QString& realJid, const QString& domain);
    // The sender the server stamped on an archived room message; empty when it stamped none.
    static QString archiveStamp(const QXmppMessage& message, const QString& domain);
};
