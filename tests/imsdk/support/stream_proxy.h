#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QPair>
#include <QPointer>
#include <QTcpServer>

class QTcpSocket;

// A TCP relay in front of the XMPP server, on loopback, that can rewrite what the server
// sends: the client then receives stanzas no real server would pass on (a hostile or
// broken server), while the session stays an ordinary one. Rewrites apply to each piece
// the server writes, which on loopback is a whole stanza.
class StreamProxy : public QObject {
    Q_OBJECT
public:
    StreamProxy(const QString& host, quint16 port);
    bool listen();
    quint16 port() const { return server_.serverPort(); }
    // From now on, `from` in the server's output becomes `to` (once per occurrence).
    void rewrite(const QByteArray& from, const QByteArray& to) { rules_.append({from, to}); }
    int rewrites() const { return rewrites_; }
    // Milliseconds since the last rewritten piece went to the client (-1 before any).
    qint64 msSinceRewrite() const { return lastRewrite_.isValid() ? lastRewrite_.elapsed() : -1; }
    // While on, what the server sends is thrown away: stanzas the server delivered that the
    // client never gets, as on a link that dies unnoticed.
    void setDropping(bool on) { dropping_ = on; }
    // While on, what the client sends is thrown away too: a server node that died without
    // closing its connections.
    void setSwallowing(bool on) { swallowing_ = on; }
    // Closes every relayed connection at once, both ways.
    void cut();
    // Cuts and takes no more connections: the node is gone.
    void stop() {
        server_.close();
        cut();
    }

private:
    void onConnection();

    QString host_;
    quint16 port_;
    QTcpServer server_;
    QList<QPair<QByteArray, QByteArray>> rules_;
    int rewrites_ = 0;
    bool dropping_ = false;
    bool swallowing_ = false;
    QList<QPointer<QTcpSocket>> clients_;
    QElapsedTimer lastRewrite_;
};
