#pragma once

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QStringList>
#include <QTest>
#include <QUrl>

#include "backendlistening.h"
#include "companyca.h"
#include "support/prosody_server.h"

// A colleague of the demo company as the back end's log-in reply hands it out.
struct DemoPerson {
    QString userName;
    QString id;
    QString secret;   // the IM secret
    QString session;  // the back end's session id
};

struct DemoAnswer {
    int status = 0;
    QByteArray body;
    QString location;
};

// The reference back end with the demo company, beside a test's Prosody: it keeps the
// project rooms through the server's admin account and writes the URL table where the
// client under test reads it. Requests go out as a colleague's browser would, each with a
// network manager of its own (a shared one would keep the cookie of the last sign-in).
class DemoBackend {
public:
    // With `captureLog`, what the back end logs is kept for log() instead of shown.
    explicit DemoBackend(const QString& binary, bool captureLog = false)
        : binary_(binary), captureLog_(captureLog) {}
    ~DemoBackend() { stop(); }

    // The client's documents folder, where the back end writes the URL table and the
    // company's authority is handed out; this process's own unless set.
    void setClientDocuments(const QString& docs) { docs_ = docs; }
    // Off, the back end gets no admin account on the XMPP server and so keeps no project
    // rooms there (a benchmark's client needs none).
    void setKeepsRooms(bool on) { keepsRooms_ = on; }

    bool start(const ProsodyServer& prosody, const QString& dataDir, QByteArray* printed) {
        dataDir_ = dataDir;
        const QString docs =
            docs_.isEmpty()
                ? QStandardPaths::standardLocations(QStandardPaths::DocumentsLocation).first()
                : docs_;
        if (!handOutCompanyCa(prosody.caFile(), docs)) return false;
        QStringList rooms;
        if (keepsRooms_) {
            QFile secret(dataDir + QStringLiteral("/admin-secret"));
            if (!secret.open(QIODevice::WriteOnly)) return false;
            secret.write(prosody.adminSecret().toUtf8() + "\n");
            secret.close();
            rooms = QStringList{"--im-admin-jid",  prosody.adminJid(), "--im-admin-secret-file",
                                secret.fileName(), "--im-ca-file",     prosody.caFile()};
        }
        process_.setProcessChannelMode(captureLog_ ? QProcess::MergedChannels
                                                   : QProcess::ForwardedErrorChannel);
        process_.start(
            binary_,
            QStringList{"--data-dir", dataDir + "/backend", "--seed-demo", "--pbkdf2-iterations",
                        "1", "--port", "0", "--im-host", prosody.host(), "--im-port",
                        QString::number(prosody.port()), "--im-domain", prosody.domain(),
                        "--write-url-table", docs + "/Quelix/Resource/Text/UrlText.ini"} +
                rooms + prosody.provisionArguments() + tlsArguments(prosody));
        if (!process_.waitForStarted()) return false;
        url_ = waitForBackendUrl(process_, printed);
        if (printed) log_ = *printed;
        return !url_.isEmpty();
    }
    // With a server that speaks TLS, the back end serves HTTPS with the same certificate,
    // and this process (a colleague's browser) trusts the authority behind it.
    static QStringList tlsArguments(const ProsodyServer& prosody) {
        return backendTlsArguments(prosody.caFile(), prosody.certFile(), prosody.keyFile());
    }
    // Everything the back end printed so far (with `captureLog`, its log lines too).
    QByteArray log() {
        log_ += process_.readAllStandardOutput();
        return log_;
    }
    bool running() const { return process_.state() == QProcess::Running; }
    void stop() {
        if (process_.state() == QProcess::NotRunning) return;
        process_.terminate();
        process_.waitForFinished(10000);
    }
    QString url() const { return url_; }

    // The user names of the first `count` demo colleagues.
    QStringList userNames(int count) const {
        QProcess accounts;
        accounts.start(binary_, {"--data-dir", dataDir_ + "/backend", "--print-accounts",
                                 QString::number(count)});
        accounts.waitForFinished(30000);
        QStringList names;
        for (const QByteArray& row : accounts.readAllStandardOutput().split('\n'))
            if (!row.trimmed().isEmpty())
                names << QString::fromUtf8(row.trimmed().split(' ').first());
        return names;
    }

    DemoAnswer send(const QString& path, const QString& session,
                    const QByteArray* form = nullptr) const {
        QNetworkRequest request(QUrl(url_ + path));
        if (!session.isEmpty()) request.setRawHeader("Cookie", "QXSESSION=" + session.toUtf8());
        QNetworkAccessManager network;
        QNetworkReply* reply = nullptr;
        if (form) {
            request.setHeader(QNetworkRequest::ContentTypeHeader,
                              "application/x-www-form-urlencoded");
            reply = network.post(request, *form);
        } else {
            reply = network.get(request);
        }
        QSignalSpy done(reply, &QNetworkReply::finished);
        if (!reply->isFinished()) done.wait(20000);
        DemoAnswer a{reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(),
                     reply->readAll(), QString::fromUtf8(reply->rawHeader("Location"))};
        reply->deleteLater();
        return a;
    }
    QJsonObject call(const QString& path, const QString& session) const {
        return QJsonDocument::fromJson(send(path, session).body).object();
    }
    // The same as a POST, as every change must be.
    QJsonObject change(const QString& path, const QString& session) const {
        const QByteArray none;
        return QJsonDocument::fromJson(send(path, session, &none).body).object();
    }
    DemoPerson signIn(const QString& userName) const {
        const QByteArray form = "username=" + userName.toUtf8() + "&password=quelix123&client=3";
        const QJsonObject user =
            QJsonDocument::fromJson(send("/work/checkIn.htm?m=MobileLogin", QString(), &form).body)
                .object()
                .value("results")
                .toObject();
        return {userName, user.value("id").toString(), user.value("imSecret").toString(),
                user.value("sessionId").toString()};
    }
    // Posts a task form as the page would, with the token the page hands to `who`'s session;
    // returns the task the back end sends the browser to, 0 on refusal.
    qint64 postTaskForm(const DemoPerson& who, const QString& pagePath,
                        const QList<QPair<QString, QString>>& fields) const {
        const QString page = QString::fromUtf8(send(pagePath, who.session).body);
        const QString token =
            QRegularExpression("name=\"formToken\" value=\"([0-9a-f]+)\"").match(page).captured(1);
        QByteArray form = "formToken=" + token.toUtf8();
        for (const auto& f : fields)
            form +=
                '&' + QUrl::toPercentEncoding(f.first) + '=' + QUrl::toPercentEncoding(f.second);
        const DemoAnswer a = send("/work/task.htm", who.session, &form);
        return a.status == 303 ? a.location.section("taskId=", 1).toLongLong() : 0;
    }
    // Whether the back end has the project's room in step on the XMPP server.
    bool roomReady(const QString& project, const QString& session) const {
        return call("/work/editProj.htm?m=roomState&projectId=" + project, session)
                   .value("results")
                   .toObject()
                   .value("state")
                   .toString() == QLatin1String("ready");
    }
    // A project made by `owner` while everyone is signed in; its id once its room is on the
    // XMPP server, else empty.
    QString startProject(const DemoPerson& owner, const QString& title,
                         const QStringList& members) const {
        const QJsonObject record =
            change("/work/editProj.htm?m=createProj&title=" + QUrl::toPercentEncoding(title) +
                       "&memberIds=" + members.join(','),
                   owner.session)
                .value("results")
                .toObject();
        QString id = record.value("projectId").toString();
        if (id.isEmpty()) id = record.value("id").toString();
        if (id.isEmpty()) return QString();
        QElapsedTimer clock;
        clock.start();
        while (!roomReady(id, owner.session)) {
            if (clock.elapsed() > 20000) return QString();
            QTest::qWait(50);
        }
        return id;
    }

private:
    QString binary_;
    bool captureLog_ = false;
    QByteArray log_;
    QString dataDir_;
    QString docs_;
    bool keepsRooms_ = true;
    QProcess process_;
    QString url_;
};
