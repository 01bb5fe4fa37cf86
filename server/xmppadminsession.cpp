#include "xmppadminsession.h"

#include "elementiq.h"
#include "mucprotocol.h"
#include "stanzahook.h"

#include "sdk/socket_guard.h"
#include "sdk/stanza_guard.h"
#include "sdk/stream_security.h"

#include <QXmppConfiguration.h>
#include <QXmppLogger.h>
#include <QXmppMessage.h>
#include <QXmppPresence.h>
#include <QXmppUtils.h>

#include <QAbstractSocket>

namespace {

QString presenceKey(const QString& occupantJid) {
    return QStringLiteral("presence ") + occupantJid.toLower();
}

}  // namespace

XmppAdminSession::XmppAdminSession(const Settings& settings, QObject* parent)
    : QObject(parent), settings_(settings) {
    QString problem;
    endpoints_ = EndpointList::parse(settings.host, settings.port, &problem);
    if (endpoints_.isEmpty())
        qWarning("rooms: XMPP session: no server to reach: %s", qPrintable(problem));
    retry_.setSingleShot(true);
    connect(&retry_, &QTimer::timeout, this, &XmppAdminSession::connectNow);
}

XmppAdminSession::~XmppAdminSession() {
    // Nobody waits for answers any more: the replies' owners are going away too.
    pending_.clear();
    running_ = false;
}

QString XmppAdminSession::bareJid() const { return settings_.jid.toLower(); }

void XmppAdminSession::start() {
    running_ = true;
    connectNow();
}

void XmppAdminSession::stop() {
    running_ = false;
    retry_.stop();
    if (client_) client_->disconnectFromServer();
    failAll(QStringLiteral("offline"));
}

// A new client for every sign-in: QXmpp would otherwise try to resume the old stream, which
// a restarted server no longer knows (and send queued queries before the new stream opens).
// Queries of the old stream were answered "offline" already and are asked again.
void XmppAdminSession::createClient() {
    if (client_) {
        client_->disconnect(this);
        client_->disconnectFromServer();
        client_->deleteLater();
    }
    client_ = new QXmppClient(this);
    // Set QUELIX_XMPP_LOG to see the XML stream when the session misbehaves.
    if (qEnvironmentVariableIsSet("QUELIX_XMPP_LOG")) {
        auto* logger = new QXmppLogger(client_);
        logger->setLoggingType(QXmppLogger::StdoutLogging);
        client_->setLogger(logger);
    }
    // The stream is screened before QXmpp's parser builds it into a tree: a stanza nested a
    // few thousand levels deep would otherwise overflow the stack and end the whole back end.
    new SocketGuard(client_, StanzaGuard::Limits{},
                    SocketGuard::Reporting{QStringLiteral("rooms: XMPP session"), false});
    client_->insertExtension(0, new StanzaHook([this](const QDomElement& s) { return route(s); }));
    connect(client_, &QXmppClient::stateChanged, this, &XmppAdminSession::onStateChanged);
    connect(client_, &QXmppClient::error, this, &XmppAdminSession::onError);
}

void XmppAdminSession::connectNow() {
    if (!running_ || (client_ && client_->state() != QXmppClient::DisconnectedState)) return;
    if (endpoints_.isEmpty()) return;
    createClient();
    QXmppConfiguration config;
    config.setJid(settings_.jid);
    config.setPassword(settings_.secret);
    config.setHost(endpoints_.current().host);
    config.setPort(endpoints_.current().port);
    config.setResource(QStringLiteral("rooms"));
    config.setAutoReconnectionEnabled(false);  // we retry sooner than QXmpp would
    config.setKeepAliveInterval(30);
    config.setKeepAliveTimeout(20);
    bool tlsRequired = true;
    QString caProblem;
    if (!StreamSecurity::configure(config, settings_.caFile, false, &tlsRequired, &caProblem) &&
        caProblem != lastProblem_) {
        qWarning("rooms: XMPP session: the CA file is not used: %s", qPrintable(caProblem));
        lastProblem_ = caProblem;
    }
    security_ = new StreamSecurity(client_, tlsRequired);
    client_->connectToServer(config);
}

void XmppAdminSession::onStateChanged(QXmppClient::State state) {
    if (state == QXmppClient::ConnectedState) {
        // Every room change is a chain of small query-answer exchanges; with Nagle's
        // algorithm each could wait for the server's delayed acknowledgement (40 ms). QXmpp
        // does not offer its socket, but it is the client's child.
        for (QAbstractSocket* socket : client_->findChildren<QAbstractSocket*>()) {
            socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        }
        retryMs_ = 0;
        online_ = true;
        if (!lastProblem_.isEmpty()) lastProblem_.clear();
        emit online();
        return;
    }
    if (state != QXmppClient::DisconnectedState) return;
    const QString insecure = security_ ? security_->failure() : QString();
    if (!insecure.isEmpty() && insecure != lastProblem_) {
        qWarning("rooms: XMPP session: %s; trying again", qPrintable(insecure));
        lastProblem_ = insecure;
    }
    const bool was = online_;
    online_ = false;
    failAll(QStringLiteral("offline"));
    if (!running_) return;
    if (was) emit offline();
    // The next node may well be up: it is tried at once. Only a whole round of refusals
    // makes the pause grow.
    if (!endpoints_.advance()) {
        retry_.start(kNextEndpointMs);
        return;
    }
    retryMs_ = qBound(250, retryMs_ * 2, qMax(250, settings_.retryMaxMs));
    retry_.start(retryMs_);
}

void XmppAdminSession::onError(QXmppClient::Error error) {
    QString problem;
    switch (error) {
        case QXmppClient::SocketError:
            problem = security_ && !security_->failure().isEmpty()
                          ? security_->failure()
                          : QStringLiteral("cannot reach %1:%2")
                                .arg(endpoints_.current().host)
                                .arg(endpoints_.current().port);
            break;
        case QXmppClient::KeepAliveError:
            problem = QStringLiteral("the server stopped answering");
            break;
        case QXmppClient::XmppStreamError:
            problem = client_->xmppStreamError() == QXmppStanza::Error::NotAuthorized
                          ? QStringLiteral("the server refused %1 and its secret").arg(bareJid())
                          : QStringLiteral("stream error (condition %1)")
                                .arg(int(client_->xmppStreamError()));
            break;
        case QXmppClient::NoError:
            return;
    }
    // One line per kind of trouble, not one per retry.
    if (problem != lastProblem_) {
        qWarning("rooms: XMPP session: %s; trying again", qPrintable(problem));
        lastProblem_ = problem;
    }
}

void XmppAdminSession::expect(const QString& key, const QString& peer, Reply done) {
    const quint64 serial = ++serial_;
    // A request that is somehow still open under the same key cannot be answered now.
    if (pending_.contains(key)) finish(key, QDomElement(), QStringLiteral("superseded"));
    pending_.insert(key, {serial, peer.toLower(), std::move(done)});
    QTimer::singleShot(settings_.replyTimeoutMs, this, [this, key, serial] {
        const auto it = pending_.constFind(key);
        if (it != pending_.constEnd() && it->serial == serial) {
            finish(key, QDomElement(), QStringLiteral("timeout"));
        }
    });
}

void XmppAdminSession::finish(const QString& key, const QDomElement& answer, const QString& error) {
    const auto it = pending_.find(key);
    if (it == pending_.end()) return;
    const Reply reply = std::move(it->reply);
    pending_.erase(it);
    reply(answer, error);
}

void XmppAdminSession::failAll(const QString& error) {
    const QStringList keys = pending_.keys();
    for (const QString& key : keys) finish(key, QDomElement(), error);
}

void XmppAdminSession::sendIq(QXmppIq::Type type, const QString& to, const QXmppElement& query,
                              Reply done) {
    if (!online_) return done(QDomElement(), QStringLiteral("offline"));
    ElementIq iq(type, to, query);
    expect(iq.id(), to, std::move(done));
    if (!client_ || !client_->sendPacket(iq))
        finish(iq.id(), QDomElement(), QStringLiteral("offline"));
}

void XmppAdminSession::enterRoom(const QString& occupantJid, Reply done) {
    if (!online_) return done(QDomElement(), QStringLiteral("offline"));
    QXmppPresence presence;
    presence.setTo(occupantJid);
    presence.setExtensions({MucProtocol::joinElement()});
    expect(presenceKey(occupantJid), occupantJid, std::move(done));
    if (!client_ || !client_->sendPacket(presence)) {
        finish(presenceKey(occupantJid), QDomElement(), QStringLiteral("offline"));
    }
}

void XmppAdminSession::leaveRoom(const QString& occupantJid) {
    QXmppPresence presence(QXmppPresence::Unavailable);
    presence.setTo(occupantJid);
    if (client_) client_->sendPacket(presence);
}

bool XmppAdminSession::sendMessage(const QXmppMessage& message) {
    return online_ && client_ && client_->sendPacket(message);
}

// Whether `from` may answer what was sent to `peer`. The server stamps every sender, so an
// answer with the right id from anyone else is somebody guessing, and is not taken.
bool XmppAdminSession::answersFrom(const QString& peer, const QString& from) const {
    const QString f = from.toLower();
    if (f == peer) return true;
    // A query to no address is the server's to answer, for our own account.
    if (!peer.isEmpty()) return false;
    return f.isEmpty() || f == bareJid() || f == QXmppUtils::jidToDomain(bareJid());
}

bool XmppAdminSession::route(const QDomElement& stanza) {
    const QString type = stanza.attribute(QStringLiteral("type"));
    // What the stream guard refused arrives as its start tag holding one marker: an answer
    // we wait for fails, anything else is left alone (the guard has logged it).
    const bool refused = !stanza.firstChildElement(QStringLiteral("refused")).isNull() &&
                         stanza.firstChildElement(QStringLiteral("refused")).namespaceURI() ==
                             QLatin1String(StanzaGuard::kNamespace);
    if (stanza.tagName() == QLatin1String("iq")) {
        if (type != QLatin1String("result") && type != QLatin1String("error")) return false;
        const QString id = stanza.attribute(QStringLiteral("id"));
        const auto it = pending_.constFind(id);
        if (it == pending_.constEnd()) return refused;
        if (!answersFrom(it->peer, stanza.attribute(QStringLiteral("from")))) {
            qWarning("rooms: XMPP session: an answer to %s came from %s; ignored",
                     qPrintable(it->peer), qPrintable(stanza.attribute(QStringLiteral("from"))));
            return true;
        }
        if (refused) {
            finish(id, QDomElement(), QStringLiteral("refused"));
            return true;
        }
        finish(id, stanza,
               type == QLatin1String("error") ? MucProtocol::errorCondition(stanza) : QString());
        return true;
    }
    if (stanza.tagName() == QLatin1String("presence")) {
        const QString key = presenceKey(stanza.attribute(QStringLiteral("from")));
        if (!pending_.contains(key)) return refused;
        if (refused) {
            finish(key, QDomElement(), QStringLiteral("refused"));
            return true;
        }
        if (type == QLatin1String("error")) {
            finish(key, stanza, MucProtocol::errorCondition(stanza));
            return true;
        }
        if (type.isEmpty() && MucProtocol::statusCodes(stanza).contains(110)) {
            finish(key, stanza, QString());
            return true;
        }
    }
    return refused;
}
