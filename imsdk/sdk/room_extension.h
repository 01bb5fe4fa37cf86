#pragma once

#include <QXmppClientExtension.h>

class TribeRooms;

// Hands presence from the tribes' conference service to the rooms in its raw form (QXmpp
// keeps no room destruction nor removal reasons), before any other handler sees it.
class RoomExtension : public QXmppClientExtension {
    Q_OBJECT
public:
    explicit RoomExtension(TribeRooms* rooms) : rooms_(rooms) {}

    bool handleStanza(const QDomElement& stanza) override;

private:
    TribeRooms* rooms_;
};
