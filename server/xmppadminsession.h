#pragma once

#include <QXmppClient.h>
#include <QXmppIq.h>
#include <QDomElement>
#include <QHash>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <functional>

#include "sdk/endpoint_list.h"

class QXmppElement;
class StreamSecurity;
class QXmppMessage;

// The back end's own XMPP session, as an administrator of the XMPP server: sends queries
// and waits for their answers, and stays signed in: a dropped or refused connection is
// tried again on the next endpoint at once, and after a whole round of them with growing
// pauses (up to `retryMaxMs`), for as long as it runs. Lives on
// one thread (the room keeper's); every call and every answer happen there.
class XmppAdminSession : public QObject {
    Q_OBJECT

public:
    struct Settings {
        // One host, or a cluster's nodes as "host[:port],host[:port]", tried in order.
        QString host;
        int port = 5222;  // for hosts without one
        QString jid;      // user@domain
        QString secret;
        // The authority that signed the XMPP server's certificate, trusted beside the
        // system's (PEM); TLS is required unless the server is on this machine.
        QString caFile;
        int retryMaxMs = 5000;
        int replyTimeoutMs = 20000;
    };
    // `error` is empty for an answer of type result; otherwise the error condition, or
    // "timeout" / "offline" when no answer can come.
    using Reply = std::function<void(const QDomElement& answer, const QString& error)>;

    explicit XmppAdminSession(const Settings& settings, QObject* parent = nullptr);
    ~XmppAdminSession() override;

    void start();
    void stop();
    bool isOnline() const { return online_; }
    QString bareJid() const;

    void sendIq(QXmppIq::Type type, const QString& to, const QXmppElement& query, Reply done);
    // Enters a room (creating it when it does not exist); answered by the room's presence
    // for us (status 110) or its error.
    void enterRoom(const QString& occupantJid, Reply done);
    void leaveRoom(const QString& occupantJid);
    // False when it could not be handed to the stream (offline).
    bool sendMessage(const QXmppMessage& message);

signals:
    void online();
    void offline();

private:
    struct Pending {
        quint64 serial;
        QString peer;  // where the query went, lower case; only it may answer
        Reply reply;
    };

    bool route(const QDomElement& stanza);
    void expect(const QString& key, const QString& peer, Reply done);
    bool answersFrom(const QString& peer, const QString& from) const;
    void finish(const QString& key, const QDomElement& answer, const QString& error);
    void failAll(const QString& error);
    void createClient();
    void connectNow();
    void onStateChanged(QXmppClient::State state);
    void onError(QXmppClient::Error error);

    static constexpr int kNextEndpointMs = 50;

    Settings settings_;
    EndpointList endpoints_;
    QXmppClient* client_ = nullptr;
    QHash<QString, Pending> pending_;  // by IQ id, or "presence " + occupant JID
    quint64 serial_ = 0;
    QTimer retry_;
    int retryMs_ = 0;
    bool online_ = false;
    bool running_ = false;
    QString lastProblem_;
    QPointer<StreamSecurity> security_;  // of the current client
};
