#include "mucprotocol.h"

#include <QDomElement>

namespace {

const char kDataForms[] = "jabber:x:data";
const char kRoomConfigType[] = "http://jabber.org/protocol/muc#roomconfig";

QXmppElement element(const QString& name, const QString& ns = QString()) {
    QXmppElement e;
    e.setTagName(name);
    if (!ns.isEmpty()) e.setAttribute(QStringLiteral("xmlns"), ns);
    return e;
}

QXmppElement field(const QString& var, const QString& value) {
    QXmppElement f = element(QStringLiteral("field"));
    f.setAttribute(QStringLiteral("var"), var);
    QXmppElement v = element(QStringLiteral("value"));
    v.setValue(value);
    f.appendChild(v);
    return f;
}

// Booleans come back as "true"/"false" from some servers and "1"/"0" from others.
QString normalised(const QString& type, const QString& value) {
    if (type == QLatin1String("boolean")) {
        return value == QLatin1String("1") || value == QLatin1String("true") ? QStringLiteral("1")
                                                                             : QStringLiteral("0");
    }
    return value;
}

}  // namespace

const char MucProtocol::kMuc[] = "http://jabber.org/protocol/muc";
const char MucProtocol::kMucAdmin[] = "http://jabber.org/protocol/muc#admin";
const char MucProtocol::kMucOwner[] = "http://jabber.org/protocol/muc#owner";
const char MucProtocol::kDiscoInfo[] = "http://jabber.org/protocol/disco#info";

QMap<QString, QString> MucProtocol::projectRoomConfig(const QString& title) {
    return {
        {QStringLiteral("muc#roomconfig_roomname"), title},
        {QStringLiteral("muc#roomconfig_persistentroom"), QStringLiteral("1")},
        {QStringLiteral("muc#roomconfig_membersonly"), QStringLiteral("1")},
        // Hidden: the room list is shared by every company on the server.
        {QStringLiteral("muc#roomconfig_publicroom"), QStringLiteral("0")},
        // Members see each other's real address; the client maps them to colleagues.
        {QStringLiteral("muc#roomconfig_whois"), QStringLiteral("anyone")},
        // In a members-only room an invitation would make the invitee a member: membership
        // is the back end's alone.
        {QStringLiteral("muc#roomconfig_allowinvites"), QStringLiteral("0")},
        // Not moderated: ejabberd lets a former member back into a moderated room under the
        // role it remembers, whatever the member list says.
        {QStringLiteral("muc#roomconfig_moderatedroom"), QStringLiteral("0")},
        {QStringLiteral("muc#roomconfig_enablearchiving"), QStringLiteral("1")},  // Prosody
        {QStringLiteral("mam"), QStringLiteral("1")},                             // ejabberd
    };
}

QXmppElement MucProtocol::query(const char* ns) {
    return element(QStringLiteral("query"), QLatin1String(ns));
}

QXmppElement MucProtocol::affiliationQuery(const QString& affiliation, const QString& jid) {
    QXmppElement item = element(QStringLiteral("item"));
    item.setAttribute(QStringLiteral("affiliation"), affiliation);
    if (!jid.isEmpty()) item.setAttribute(QStringLiteral("jid"), jid);
    QXmppElement q = query(kMucAdmin);
    q.appendChild(item);
    return q;
}

QXmppElement MucProtocol::destroyQuery(const QString& reason) {
    QXmppElement why = element(QStringLiteral("reason"));
    why.setValue(reason);
    QXmppElement destroy = element(QStringLiteral("destroy"));
    destroy.appendChild(why);
    QXmppElement q = query(kMucOwner);
    q.appendChild(destroy);
    return q;
}

QXmppElement MucProtocol::joinElement() {
    QXmppElement history = element(QStringLiteral("history"));
    history.setAttribute(QStringLiteral("maxstanzas"), QStringLiteral("0"));
    QXmppElement x = element(QStringLiteral("x"), QLatin1String(kMuc));
    x.appendChild(history);
    return x;
}

QXmppElement MucProtocol::configSubmission(const QDomElement& formReply,
                                           const QMap<QString, QString>& wanted, bool always) {
    const QDomElement form =
        formReply.firstChildElement(QStringLiteral("query")).firstChildElement(QStringLiteral("x"));
    QXmppElement submit = element(QStringLiteral("x"), QLatin1String(kDataForms));
    submit.setAttribute(QStringLiteral("type"), QStringLiteral("submit"));
    submit.appendChild(field(QStringLiteral("FORM_TYPE"), QLatin1String(kRoomConfigType)));
    bool differs = false;
    for (QDomElement f = form.firstChildElement(QStringLiteral("field")); !f.isNull();
         f = f.nextSiblingElement(QStringLiteral("field"))) {
        const QString var = f.attribute(QStringLiteral("var"));
        if (!wanted.contains(var)) continue;
        const QString type = f.attribute(QStringLiteral("type"));
        const QString want = normalised(type, wanted.value(var));
        const QString have = normalised(type, f.firstChildElement(QStringLiteral("value")).text());
        if (have != want) differs = true;
        submit.appendChild(field(var, want));
    }
    return differs || always ? submit : QXmppElement();
}

QStringList MucProtocol::listedJids(const QDomElement& adminReply) {
    QStringList jids;
    const QDomElement q = adminReply.firstChildElement(QStringLiteral("query"));
    for (QDomElement item = q.firstChildElement(QStringLiteral("item")); !item.isNull();
         item = item.nextSiblingElement(QStringLiteral("item"))) {
        const QString jid = item.attribute(QStringLiteral("jid")).section(QLatin1Char('/'), 0, 0);
        if (!jid.isEmpty()) jids << jid.toLower();
    }
    return jids;
}

QString MucProtocol::errorCondition(const QDomElement& stanza) {
    const QDomElement error = stanza.firstChildElement(QStringLiteral("error"));
    for (QDomElement c = error.firstChildElement(); !c.isNull(); c = c.nextSiblingElement()) {
        if (c.tagName() != QLatin1String("text")) return c.tagName();
    }
    return error.isNull() ? QString() : QStringLiteral("undefined-condition");
}

QList<int> MucProtocol::statusCodes(const QDomElement& presence) {
    QList<int> codes;
    for (QDomElement x = presence.firstChildElement(QStringLiteral("x")); !x.isNull();
         x = x.nextSiblingElement(QStringLiteral("x"))) {
        for (QDomElement s = x.firstChildElement(QStringLiteral("status")); !s.isNull();
             s = s.nextSiblingElement(QStringLiteral("status"))) {
            codes << s.attribute(QStringLiteral("code")).toInt();
        }
    }
    return codes;
}
