#pragma once

#include <QXmppElement.h>
#include <QList>
#include <QMap>
#include <QPair>
#include <QString>
#include <QStringList>

class QDomElement;

// The plain multi-user chat (XEP-0045) owner and admin stanzas the room keeper sends, and
// the reading of the answers. Nothing server-specific: Prosody and ejabberd both take them.
class MucProtocol {
public:
    static const char kMuc[];
    static const char kMucAdmin[];
    static const char kMucOwner[];
    static const char kDiscoInfo[];

    // The configuration a project's room must have. Fields a server does not offer are
    // left out when submitting; both archive switches are named because servers differ.
    static QMap<QString, QString> projectRoomConfig(const QString& title);

    static QXmppElement query(const char* ns);
    // <query xmlns=muc#admin><item affiliation=A [jid=J]/></query>
    static QXmppElement affiliationQuery(const QString& affiliation,
                                         const QString& jid = QString());
    static QXmppElement destroyQuery(const QString& reason);
    // The join element, asking for no history.
    static QXmppElement joinElement();

    // From a filled-in room configuration form (the owner query's answer): the form to
    // submit so that the room has `wanted`, or a null element when it already has it.
    // `always` submits the wanted fields even when nothing differs (a new room stays locked
    // until its configuration is submitted).
    static QXmppElement configSubmission(const QDomElement& formReply,
                                         const QMap<QString, QString>& wanted, bool always);

    // The bare JIDs listed in an admin query's answer.
    static QStringList listedJids(const QDomElement& adminReply);
    // The error condition of an error stanza ("item-not-found"), empty when none.
    static QString errorCondition(const QDomElement& stanza);
    // The status codes of a room presence.
    static QList<int> statusCodes(const QDomElement& presence);
};
