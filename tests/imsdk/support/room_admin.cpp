#include "room_admin.h"

#include <QXmppClient.h>
#include <QXmppClientExtension.h>
#include <QXmppElement.h>
#include <QXmppIq.h>
#include <QXmppMessage.h>
#include <QXmppPresence.h>
#include <QXmppUtils.h>
#include <QDomElement>
#include <QEventLoop>
#include <QSet>
#include <QTimer>
#include <QUuid>
#include <QXmlStreamWriter>

#include "prosody_trust.h"

namespace {

// An IQ whose payload the caller writes.
class RawIq : public QXmppIq {
public:
    std::function<void(QXmlStreamWriter*)> payload;

protected:
    void toXmlElementFromChild(QXmlStreamWriter* writer) const override {
        if (payload) payload(writer);
    }
};

const char kOwnerNs[] = "http://jabber.org/protocol/muc#owner";
const char kAdminNs[] = "http://jabber.org/protocol/muc#admin";

}  // namespace

// Takes the answer to the one request waiting, whole: QXmpp would hand a plain QXmppIq
// without the form a room's configuration comes in.
class IqAnswers : public QXmppClientExtension {
public:
    QString waitingFor;
    QDomElement answer;
    std::function<void()> arrived;

    bool handleStanza(const QDomElement& stanza) override {
        if (waitingFor.isEmpty() || stanza.tagName() != QLatin1String("iq") ||
            stanza.attribute(QStringLiteral("id")) != waitingFor)
            return false;
        const QString type = stanza.attribute(QStringLiteral("type"));
        if (type != QLatin1String("result") && type != QLatin1String("error")) return false;
        answer = stanza.cloneNode(true).toElement();
        waitingFor.clear();
        if (arrived) arrived();
        return true;
    }
};

RoomAdmin::RoomAdmin(const ProsodyServer& server, const QString& account, const QString& secret)
    : client_(new QXmppClient(this)),
      answers_(new IqAnswers),
      config_(plainConfig(server, account, QStringLiteral("admin"), secret)),
      domain_(server.domain()) {
    client_->addExtension(answers_);
}

RoomAdmin::~RoomAdmin() { client_->disconnectFromServer(); }

bool RoomAdmin::connectNow() {
    QEventLoop loop;
    connect(client_, &QXmppClient::connected, &loop, &QEventLoop::quit);
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    client_->connectToServer(config_);
    loop.exec();
    return client_->isConnected();
}

QString RoomAdmin::roomJid(quint64 tribe) const {
    return QString::number(tribe) + QStringLiteral("@conference.") + domain_;
}

bool RoomAdmin::request(const QString& to, const QString& type,
                        const std::function<void(QXmlStreamWriter*)>& query, QDomElement* answer) {
    RawIq iq;
    iq.setTo(to);
    iq.setType(type == QLatin1String("get") ? QXmppIq::Get : QXmppIq::Set);
    iq.payload = query;
    QEventLoop loop;
    answers_->answer = QDomElement();
    answers_->waitingFor = iq.id();
    answers_->arrived = [&loop] { loop.quit(); };
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    client_->sendPacket(iq);
    if (!answers_->waitingFor.isEmpty()) loop.exec();
    answers_->waitingFor.clear();
    answers_->arrived = nullptr;
    if (answer) *answer = answers_->answer;
    return answers_->answer.attribute(QStringLiteral("type")) == QLatin1String("result");
}

bool RoomAdmin::createRoom(quint64 tribe, const QString& title, const QString& owner,
                           const QStringList& members) {
    const QString room = roomJid(tribe);
    // Joining a room that does not exist makes it (locked until configured).
    bool joined = false;
    QEventLoop loop;
    auto c = connect(client_, &QXmppClient::presenceReceived, &loop, [&](const QXmppPresence& p) {
        if (QXmppUtils::jidToBareJid(p.from()) != room) return;
        joined = p.type() == QXmppPresence::Available;
        loop.quit();
    });
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    client_->sendPacket(roomJoin(room, QStringLiteral("backend")));
    loop.exec();
    disconnect(c);
    if (!joined) {
        qWarning("room admin: could not enter %s", qPrintable(room));
        return false;
    }
    // Servers reject fields they do not offer (ejabberd names the archive switch "mam",
    // Prosody "muc#roomconfig_enablearchiving"): submit only what the room's form has.
    QDomElement form;
    if (!request(
            room, QStringLiteral("get"),
            [](QXmlStreamWriter* w) {
                w->writeStartElement(QStringLiteral("query"));
                w->writeDefaultNamespace(QLatin1String(kOwnerNs));
                w->writeEndElement();
            },
            &form)) {
        qWarning("room admin: no configuration form for %s", qPrintable(room));
        return false;
    }
    QSet<QString> offered;
    const QDomElement fields =
        form.firstChildElement(QStringLiteral("query")).firstChildElement(QStringLiteral("x"));
    for (QDomElement f = fields.firstChildElement(QStringLiteral("field")); !f.isNull();
         f = f.nextSiblingElement(QStringLiteral("field")))
        offered.insert(f.attribute(QStringLiteral("var")));
    const bool configured = request(room, QStringLiteral("set"), [&](QXmlStreamWriter* w) {
        w->writeStartElement(QStringLiteral("query"));
        w->writeDefaultNamespace(QLatin1String(kOwnerNs));
        w->writeStartElement(QStringLiteral("x"));
        w->writeDefaultNamespace(QStringLiteral("jabber:x:data"));
        w->writeAttribute(QStringLiteral("type"), QStringLiteral("submit"));
        const QList<QPair<QString, QString>> fields = {
            {"FORM_TYPE", "http://jabber.org/protocol/muc#roomconfig"},
            {"muc#roomconfig_roomname", title},
            {"muc#roomconfig_persistentroom", "1"},
            {"muc#roomconfig_membersonly", "1"},
            {"muc#roomconfig_publicroom", "0"},
            {"muc#roomconfig_whois", "anyone"},
            // ejabberd would let a former member back into a moderated room.
            {"muc#roomconfig_moderatedroom", "0"},
            {"muc#roomconfig_enablearchiving", "1"},
            {"mam", "1"},
        };
        for (const auto& f : fields) {
            if (f.first != QLatin1String("FORM_TYPE") && !offered.contains(f.first)) continue;
            w->writeStartElement(QStringLiteral("field"));
            w->writeAttribute(QStringLiteral("var"), f.first);
            w->writeTextElement(QStringLiteral("value"), f.second);
            w->writeEndElement();
        }
        w->writeEndElement();
        w->writeEndElement();
    });
    if (!configured) {
        qWarning("room admin: could not configure %s", qPrintable(room));
        return false;
    }
    // The back end's session leaves; the room stays (persistent).
    QXmppPresence leave(QXmppPresence::Unavailable);
    leave.setTo(room + QStringLiteral("/backend"));
    client_->sendPacket(leave);
    if (!owner.isEmpty() && !setAffiliation(tribe, owner, QStringLiteral("owner"))) return false;
    for (const QString& m : members)
        if (!setAffiliation(tribe, m, QStringLiteral("member"))) return false;
    return true;
}

bool RoomAdmin::setAffiliation(quint64 tribe, const QString& user, const QString& affiliation,
                               const QString& reason) {
    return request(roomJid(tribe), QStringLiteral("set"), [&](QXmlStreamWriter* w) {
        w->writeStartElement(QStringLiteral("query"));
        w->writeDefaultNamespace(QLatin1String(kAdminNs));
        w->writeStartElement(QStringLiteral("item"));
        w->writeAttribute(QStringLiteral("affiliation"), affiliation);
        w->writeAttribute(QStringLiteral("jid"), user + QLatin1Char('@') + domain_);
        if (!reason.isEmpty()) w->writeTextElement(QStringLiteral("reason"), reason);
        w->writeEndElement();
        w->writeEndElement();
    });
}

bool RoomAdmin::destroyRoom(quint64 tribe) {
    return request(roomJid(tribe), QStringLiteral("set"), [&](QXmlStreamWriter* w) {
        w->writeStartElement(QStringLiteral("query"));
        w->writeDefaultNamespace(QLatin1String(kOwnerNs));
        w->writeStartElement(QStringLiteral("destroy"));
        w->writeTextElement(QStringLiteral("reason"), QStringLiteral("dissolved"));
        w->writeEndElement();
        w->writeEndElement();
    });
}

void RoomAdmin::notice(const QString& to, quint64 tribe, const QString& event, const QString& user,
                       const QString& title) {
    QXmppMessage m(QString(), to + QLatin1Char('@') + domain_,
                   QStringLiteral("%1 %2 %3").arg(user, event).arg(tribe));
    m.setType(QXmppMessage::Normal);
    m.setId(QUuid::createUuid().toString(QUuid::WithoutBraces));
    QXmppElement e;
    e.setTagName(QStringLiteral("tribe"));
    e.setAttribute(QStringLiteral("xmlns"), QStringLiteral("urn:quelix:tribe:1"));
    e.setAttribute(QStringLiteral("id"), QString::number(tribe));
    e.setAttribute(QStringLiteral("event"), event);
    e.setAttribute(QStringLiteral("user"), user);
    if (!title.isEmpty()) e.setAttribute(QStringLiteral("name"), title);
    m.setExtensions({e});
    client_->sendPacket(m);
}

void RoomAdmin::relayCard(const QString& to, const QString& forAccount, const QString& id,
                          const QString& json, int kind) {
    QXmppMessage m(QString(), to + QLatin1Char('@') + domain_, QStringLiteral("[任务]"));
    m.setType(QXmppMessage::Chat);
    m.setId(id);
    m.setOriginId(id);
    QXmppElement content;
    content.setTagName(QStringLiteral("content"));
    content.setAttribute(QStringLiteral("xmlns"), QStringLiteral("urn:quelix:im:1"));
    content.setAttribute(QStringLiteral("kind"), QString::number(kind));
    content.setValue(json);
    QXmppElement relay;
    relay.setTagName(QStringLiteral("relay"));
    relay.setAttribute(QStringLiteral("xmlns"), QStringLiteral("urn:quelix:im:1"));
    relay.setAttribute(QStringLiteral("for"), forAccount);
    m.setExtensions({content, relay});
    client_->sendPacket(m);
}
