#pragma once

// The back end in the test's own process: the demo company in a private SQLite file, served
// on a loopback port picked at run time, and requests made the way the client makes them.
#include "backendserver.h"
#include "database.h"
#include "democompany.h"
#include "passwordhasher.h"

#include <httplib.h>

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QUrl>

#include <functional>
#include <memory>

inline constexpr char kForm[] = "application/x-www-form-urlencoded";
inline constexpr char kLogIn[] = "/work/checkIn.htm?m=MobileLogin";
inline constexpr char kRivalPassword[] = "rival-pass";

// A reply's JSON envelope; empty without a reply.
inline QJsonObject envelope(const httplib::Result& r) {
    return r ? QJsonDocument::fromJson(QByteArray::fromStdString(r->body)).object() : QJsonObject();
}
inline int code(const httplib::Result& r) { return envelope(r).value("errorCode").toInt(-1); }
inline QJsonObject results(const httplib::Result& r) {
    return envelope(r).value("results").toObject();
}
inline std::string enc(const QString& s) { return QUrl::toPercentEncoding(s).toStdString(); }
// The log-in form exactly as the client sends it: these three fields, in this order.
inline std::string logInForm(const QString& user, const QString& password,
                             const char* client = "3") {
    return "username=" + enc(user) + "&password=" + enc(password) + "&client=" + client;
}
inline httplib::Headers as(const QString& session) {
    return {{"Cookie", "QXSESSION=" + session.toStdString()}};
}

class BackendRig {
public:
    // The demo company, its passwords hashed with `iterations`.
    bool seed(int iterations = 1000) {
        if (!dir.isValid()) return false;
        db = std::make_unique<Database>(QStringLiteral("sqlite:") + path("directory.db"));
        return db->createSchema() && DemoCompany::seedDemo(db.get(), iterations, &error);
    }
    // The one colleague of a second company: 90001, "rival", kRivalPassword.
    bool addRival() {
        QSqlQuery q(db->connection());
        q.prepare(
            "INSERT INTO users (id, company_id, dept_id, user_name, real_name, work_nick, mobile,"
            " email, date_created, full_pinyin, short_pinyin, password_hash, im_secret, open_id)"
            " VALUES (90001, 2, 1, 'rival', 'r', 'r', '', '', '', '', '', ?, 's', '')");
        q.addBindValue(PasswordHasher(1000).hash(QString::fromLatin1(kRivalPassword)));
        return QSqlQuery(db->connection())
                   .exec("INSERT INTO company (id, name) VALUES (2, 'rival')") &&
               q.exec();
    }
    // Serves on loopback, attachments in "files" unless `options` say otherwise; `before`
    // may attach a room keeper or a provisioner first.
    bool serve(BackendServer::Options options = {},
               const std::function<void(BackendServer&)>& before = {}) {
        if (options.filesDir.isEmpty()) options.filesDir = path("files");
        server = std::make_unique<BackendServer>(db.get(), options);
        if (before) before(*server);
        return server->start(QStringLiteral("127.0.0.1"), 0);
    }
    void stop() {
        server.reset();
        db.reset();
    }

    httplib::Client client() const {
        httplib::Client c("127.0.0.1", server->port());
        c.set_read_timeout(30, 0);
        return c;
    }
    httplib::Result logIn(const QString& user,
                          const QString& password = QString::fromLatin1(DemoCompany::kPassword),
                          const char* clientKind = "3") const {
        return client().Post(kLogIn, logInForm(user, password, clientKind), kForm);
    }
    // The session of a successful log-in; empty otherwise.
    QString signIn(const QString& user,
                   const QString& password = QString::fromLatin1(DemoCompany::kPassword)) const {
        return results(logIn(user, password)).value("sessionId").toString();
    }
    QStringList accounts(int count) const { return DemoCompany::accounts(db.get(), count); }
    // The first column of the first row `sql` gives, -1 when it gives none.
    int number(const QString& sql) const {
        QSqlQuery q(db->connection());
        return q.exec(sql) && q.next() ? q.value(0).toInt() : -1;
    }
    QString path(const char* name) const { return dir.filePath(QLatin1String(name)); }

    QTemporaryDir dir{QDir(qEnvironmentVariable("QUELIX_TEST_TMP", QDir::tempPath()))
                          .filePath(QStringLiteral("backend-XXXXXX"))};
    std::unique_ptr<Database> db;
    std::unique_ptr<BackendServer> server;
    QString error;
};
