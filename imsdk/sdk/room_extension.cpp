#include "sdk/room_extension.h"

#include <QDomElement>

#include "sdk/tribe_rooms.h"

bool RoomExtension::handleStanza(const QDomElement& stanza) {
    if (stanza.tagName() != QLatin1String("presence")) return false;
    return rooms_->handlePresence(stanza);
}
