#include "sdk/stream_security.h"

#include <QXmppClient.h>
#include <QXmppConfiguration.h>
#include <QXmppOutgoingClient.h>

#include <QFile>
#include <QHostAddress>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslError>
#include <QSslSocket>
#include <QUrl>

StreamSecurity::StreamSecurity(QXmppClient* client, bool required)
    : QObject(client), required_(required) {
    auto* stream = client->findChild<QXmppOutgoingClient*>();
    socket_ = stream ? stream->socket() : nullptr;
    if (!socket_) return;
    connect(socket_, &QAbstractSocket::connected, this, [this] { connected_ = true; });
    connect(socket_, &QSslSocket::encrypted, this, [this] { encrypted_ = true; });
    connect(socket_, QOverload<const QList<QSslError>&>::of(&QSslSocket::sslErrors), this,
            [this](const QList<QSslError>& errors) {
                QStringList texts;
                for (const QSslError& e : errors) texts << e.errorString();
                texts.removeDuplicates();
                sslProblem_ = texts.join(QStringLiteral("; "));
            });
}

bool StreamSecurity::isLoopback(const QString& host) {
    if (host.compare(QLatin1String("localhost"), Qt::CaseInsensitive) == 0) return true;
    QString h = host;
    if (h.startsWith(QLatin1Char('[')) && h.endsWith(QLatin1Char(']'))) h = h.mid(1, h.size() - 2);
    const QHostAddress address(h);
    return !address.isNull() && address.isLoopback();
}

bool StreamSecurity::configure(QXmppConfiguration& config, const QString& caFile, bool require,
                               bool* required, QString* error) {
    const QString host = config.host().isEmpty() ? config.domain() : config.host();
    const bool must = require || !isLoopback(host);
    if (required) *required = must;
    config.setStreamSecurityMode(must ? QXmppConfiguration::TLSRequired
                                      : QXmppConfiguration::TLSEnabled);
    config.setIgnoreSslErrors(false);
    if (caFile.isEmpty()) return true;
    const QList<QSslCertificate> company = QSslCertificate::fromPath(caFile, QSsl::Pem);
    if (company.isEmpty()) {
        if (error)
            *error = QFile::exists(caFile)
                         ? QStringLiteral("%1 holds no certificate in PEM form").arg(caFile)
                         : QStringLiteral("%1 does not exist").arg(caFile);
        return false;
    }
    // QXmpp puts these in place of the socket's list: keep the system's beside the company's.
    config.setCaCertificates(authorities(caFile));
    return true;
}

QList<QSslCertificate> StreamSecurity::authorities(const QString& caFile) {
    // Reading the system's store costs tens of milliseconds, so it is read once.
    static const QList<QSslCertificate> system = QSslConfiguration::systemCaCertificates();
    if (caFile.isEmpty()) return system;
    return system + QSslCertificate::fromPath(caFile, QSsl::Pem);
}

bool StreamSecurity::mayTransfer(const QUrl& url) {
    const QString scheme = url.scheme().toLower();
    return scheme == QLatin1String("https") ||
           (scheme == QLatin1String("http") && isLoopback(url.host()));
}

QString StreamSecurity::failure() const {
    if (!sslProblem_.isEmpty())
        return QStringLiteral("the server's certificate is not trusted: ") + sslProblem_;
    if (required_ && connected_ && !encrypted_)
        return QStringLiteral("the server did not encrypt the connection (no STARTTLS)");
    return QString();
}
