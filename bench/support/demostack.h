#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QThread>

#include <cstdio>
#include <functional>

#include "backendlistening.h"
#include "support/prosody_server.h"

// What the benchmarks that run the real client share: the reference back end with the demo
// company beside a private Prosody, the demo colleagues' identities, and a client home that
// signs in by itself as a returning user's does.
namespace bench {

// Runs the event loop until `done` or the time is up.
inline bool runUntil(const std::function<bool()>& done, int timeoutMs) {
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < timeoutMs)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5), QThread::msleep(1);
    return done();
}

// Starts `backend` (the program QUELIX_BACKEND_BIN names) over HTTPS when the server has a
// certificate, writing the client's URL table to `urlTable`; its address, or empty after
// saying why.
inline QString startBackend(QProcess& backend, const QString& binary, const ProsodyServer& prosody,
                            const QString& dataDir, const QString& urlTable) {
    backend.start(
        binary,
        QStringList{"--data-dir", dataDir, "--seed-demo", "--pbkdf2-iterations", "1", "--port", "0",
                    "--im-host", prosody.host(), "--im-port", QString::number(prosody.port()),
                    "--im-domain", prosody.domain(), "--write-url-table", urlTable} +
            prosody.provisionArguments() +
            backendTlsArguments(prosody.caFile(), prosody.certFile(), prosody.keyFile()));
    QByteArray printed;
    const QString url = waitForBackendUrl(backend, &printed);
    if (url.isEmpty())
        std::fprintf(stderr, "the back end did not start:\n%s\n", printed.constData());
    return url;
}

// The first `count` demo colleagues' user names.
inline QStringList demoUserNames(const QString& binary, const QString& dataDir, int count) {
    QProcess names;
    names.start(binary, {"--data-dir", dataDir, "--print-accounts", QString::number(count)});
    names.waitForFinished(30000);
    QStringList out;
    for (const QByteArray& row : names.readAllStandardOutput().split('\n'))
        if (!row.trimmed().isEmpty()) out << QString::fromUtf8(row.trimmed().split(' ').first());
    return out;
}

struct Account {
    QString userName, id, secret;
};

// A demo colleague's IM identity, from the back end's log-in reply.
inline Account signIn(const QString& backend, const QString& userName) {
    Account a;
    a.userName = userName;
    QNetworkAccessManager network;
    QNetworkRequest request(QUrl(backend + "/work/checkIn.htm?m=MobileLogin"));
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/x-www-form-urlencoded");
    QNetworkReply* reply =
        network.post(request, "username=" + userName.toUtf8() + "&password=quelix123&client=3");
    runUntil([reply] { return reply->isFinished(); }, 20000);
    const QJsonObject user =
        QJsonDocument::fromJson(reply->readAll()).object().value("results").toObject();
    reply->deleteLater();
    a.id = user.value("id").toString();
    a.secret = user.value("imSecret").toString();
    return a;
}

// The client in the home whose documents are `docs` remembers `userName` and signs in
// automatically.
inline bool rememberForAutoLogin(const QString& docs, const QString& userName) {
    QFile logins(docs + QStringLiteral("/Quelix/Config/LoginList.db"));
    if (!logins.open(QIODevice::WriteOnly)) return false;
    logins.write(QStringLiteral("{\"AutoLogin\": \"%1\", \"LoginList\": [{\"username\": \"%1\", "
                                "\"password\": \"quelix123\"}]}\n")
                     .arg(userName)
                     .toUtf8());
    return true;
}

}  // namespace bench
