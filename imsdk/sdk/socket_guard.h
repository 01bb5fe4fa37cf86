#pragma once

#include <QObject>
#include <QPointer>

#include "sdk/stanza_guard.h"

class QXmppClient;
class QXmppOutgoingClient;
class QSslSocket;

// Puts a StanzaGuard between a QXmppClient's socket and its XML parser: what the socket
// delivers is screened first, and only what the guard hands on reaches QXmpp. A stream
// the guard gives up on is closed (the session's usual reconnect follows).
class SocketGuard : public QObject {
    Q_OBJECT
public:
    // How refusals are logged: under `logName`, and refused messages too unless the session
    // reports them itself (it knows their sender).
    struct Reporting {
        QString logName = QStringLiteral("imsdk");
        bool sessionReportsMessages = true;
    };

    // Installs itself on `client`'s socket; owned by the client.
    explicit SocketGuard(QXmppClient* client, const StanzaGuard::Limits& limits = {})
        : SocketGuard(client, limits, Reporting()) {}
    SocketGuard(QXmppClient* client, const StanzaGuard::Limits& limits, const Reporting& reporting);
    // False when the client's stream or socket could not be found (a QXmpp that is built
    // differently); the client then runs unguarded, which the log says.
    bool installed() const { return installed_; }

signals:
    // A stream-management element of the server's (its start tag), told before the stream
    // reads it.
    void sessionElement(const QByteArray& startTag);

private:
    void onReadyRead();

    QPointer<QXmppOutgoingClient> stream_;
    QPointer<QSslSocket> socket_;
    StanzaGuard guard_;
    Reporting reporting_;
    static constexpr int kReadChunk = 64 * 1024;
    QByteArray readBuffer_;
    bool installed_ = false;
};
