#pragma once

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

class QSslCertificate;
class QSslSocket;
class QUrl;
class QXmppClient;
class QXmppConfiguration;

// How an XMPP session protects its stream, and why a sign-in failed when that protection is
// what failed. A server that is not on this machine must speak TLS with a certificate the
// system, or the company's own authority (a CA file), vouches for; a server on loopback is
// asked for TLS too, but may go without (a developer's plain server). Certificate errors are
// never ignored. One per client, its child; a new client gets a new one.
class StreamSecurity : public QObject {
    Q_OBJECT
public:
    StreamSecurity(QXmppClient* client, bool required);

    static bool isLoopback(const QString& host);
    // Sets `config`'s security for its host: TLS required when `require` or the host is not
    // loopback, errors not ignored, the CA file's authorities trusted beside the system's.
    // False, with `error`, when a CA file is named but holds no certificate; then `config`
    // trusts the system's authorities only. Returns whether TLS is required in `*required`.
    static bool configure(QXmppConfiguration& config, const QString& caFile, bool require,
                          bool* required, QString* error);

    // The system's authorities and those in `caFile` (none when it holds none).
    static QList<QSslCertificate> authorities(const QString& caFile);
    // Whether a file may travel to or from `url`: over HTTPS, or over HTTP on this machine.
    static bool mayTransfer(const QUrl& url);

    // Once the sign-in failed: what went wrong with the stream's protection, or empty when
    // that was not the trouble.
    QString failure() const;

private:
    QPointer<QSslSocket> socket_;
    bool required_;
    bool connected_ = false;
    bool encrypted_ = false;
    QString sslProblem_;
};
