// The quelix-backend program as the demo script runs it: seeds, provisions the IM accounts,
// writes the client's URL table, answers on the port it picked, and stops
// cleanly on TERM.
#include "../support/backendlistening.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QTemporaryDir>
#include <QUrlQuery>
#include <QtTest>

class BackendProcessTest : public QObject {
    Q_OBJECT

private slots:
    void runsAsTheDemoStartsIt();
    void refusesAnAdminAccountWithoutSecret();
};

void BackendProcessTest::refusesAnAdminAccountWithoutSecret() {
    QTemporaryDir dir;
    QProcess server;
    server.start(QStringLiteral(QUELIX_BACKEND_BIN),
                 {QStringLiteral("--data-dir"), dir.filePath(QStringLiteral("data")),
                  QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--im-admin-jid"),
                  QStringLiteral("quelix-backend@quelix.test")});
    QVERIFY(server.waitForFinished(10000));
    QCOMPARE(server.exitCode(), 1);
    QVERIFY(server.readAllStandardError().contains("--im-admin-secret"));
}

void BackendProcessTest::runsAsTheDemoStartsIt() {
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString table =
        dir.filePath(QStringLiteral("Documents/Quelix/Resource/Text/UrlText.ini"));
    const QString prosody = dir.filePath(QStringLiteral("prosody"));
    QProcess server;
    server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    server.start(
        QStringLiteral(QUELIX_BACKEND_BIN),
        {QStringLiteral("--data-dir"), dir.filePath(QStringLiteral("data")),
         QStringLiteral("--seed-demo"), QStringLiteral("--pbkdf2-iterations"), QStringLiteral("1"),
         QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--im-domain"),
         QStringLiteral("quelix.test"), QStringLiteral("--prosody-data"), prosody,
         QStringLiteral("--write-url-table"), table});
    QByteArray printed;
    const QString base = waitForBackendUrl(server, &printed);
    QVERIFY2(printed.startsWith("quelix-backend listening on http://127.0.0.1:"),
             printed.constData());

    QFile urls(table);
    QVERIFY(urls.open(QIODevice::ReadOnly));
    const QJsonObject urlTable = QJsonDocument::fromJson(urls.readAll()).object();
    QCOMPARE(urlTable.size(), 15);
    QCOMPARE(urlTable[QStringLiteral("UrlLogin")].toString(),
             base + QStringLiteral("/work/checkIn.htm?m=MobileLogin"));
    QCOMPARE(
        QDir(prosody + QStringLiteral("/quelix%2etest/accounts")).entryList(QDir::Files).size(),
        320);
    // Rooms are made through the XMPP server itself, never written into its data folder.
    QVERIFY(!QDir(prosody + QStringLiteral("/conference%2equelix%2etest")).exists());

    // The log-in exactly as the client's network stack sends it.
    QProcess accounts;
    accounts.start(QStringLiteral(QUELIX_BACKEND_BIN),
                   {QStringLiteral("--data-dir"), dir.filePath(QStringLiteral("data")),
                    QStringLiteral("--print-accounts"), QStringLiteral("1")});
    QVERIFY(accounts.waitForFinished());
    const QStringList first =
        QString::fromUtf8(accounts.readAllStandardOutput()).trimmed().split(QLatin1Char(' '));
    QCOMPARE(first.size(), 2);
    QNetworkAccessManager nam;
    QNetworkRequest request{QUrl(urlTable[QStringLiteral("UrlLogin")].toString())};
    request.setHeader(QNetworkRequest::ContentTypeHeader,
                      QStringLiteral("application/x-www-form-urlencoded"));
    QUrlQuery form;
    form.addQueryItem(QStringLiteral("username"), first[0]);
    form.addQueryItem(QStringLiteral("password"), first[1]);
    form.addQueryItem(QStringLiteral("client"), QStringLiteral("3"));
    QNetworkReply* reply = nam.post(request, form.toString(QUrl::FullyEncoded).toUtf8());
    QSignalSpy done(reply, &QNetworkReply::finished);
    QVERIFY(done.wait(10000));
    const QJsonObject env = QJsonDocument::fromJson(reply->readAll()).object();
    QCOMPARE(env[QStringLiteral("errorCode")].toInt(-1), 0);
    const QJsonObject user = env[QStringLiteral("results")].toObject();
    QCOMPARE(user[QStringLiteral("imDomain")].toString(), QStringLiteral("quelix.test"));
    QFile account(prosody + QStringLiteral("/quelix%2etest/accounts/") +
                  user[QStringLiteral("id")].toString() + QStringLiteral(".dat"));
    QVERIFY(account.open(QIODevice::ReadOnly));
    QVERIFY(account.readAll().contains(user[QStringLiteral("imSecret")].toString().toUtf8()));
    delete reply;
    // An idle kept-alive connection would hold the server's shutdown for its time-out.
    nam.clearConnectionCache();

    server.terminate();
    QVERIFY(server.waitForFinished(10000));
    QCOMPARE(server.exitStatus(), QProcess::NormalExit);
    QCOMPARE(server.exitCode(), 0);
}

QTEST_GUILESS_MAIN(BackendProcessTest)
#include "tst_backendprocess.moc"
