#include "backendserver.h"

#include "apihelpers.h"
#include "avatarpainter.h"
#include "database.h"
#include "directory.h"
#include "filestore.h"
#include "gatedserver.h"
#include "loginthrottle.h"
#include "orgcache.h"
#include "pagerenderer.h"
#include "passwordhasher.h"
#include "projecteditor.h"
#include "replyenvelope.h"
#include "sessionstore.h"

#include <httplib.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSettings>
#include <QSqlQuery>
#include <QUrl>
#include <QVariant>

using api::fail;
using api::kHtml;
using api::kJson;
using api::ok;
using api::param;
using api::parseId;
using api::parseIdList;
using api::reply;

namespace {

const char kSessionCookie[] = "QXSESSION";

}  // namespace

BackendServer::BackendServer(Database* db, const Options& options)
    : db_(db),
      options_(options),
      sessions_(std::make_unique<SessionStore>(options.sessionLifetimeSeconds)),
      throttle_(std::make_unique<LoginThrottle>([&options] {
          LoginThrottle::Limits limits;
          limits.freeAttempts = options.freeLoginAttempts;
          limits.firstPauseMs = options.firstLoginPauseMs;
          return limits;
      }())),
      files_(std::make_unique<FileStore>(options.filesDir, options.uploadLimit)) {}

BackendServer::~BackendServer() { stop(); }

bool BackendServer::start(const QString& host, int port) {
    if (http_ || !files_->isReady()) return false;
    GatedServer::Limits limits;
    limits.workers = qMax(2, options_.threads);
    limits.maxConnections = qMax(8, options_.maxConnections);
    limits.maxPerAddress = qMax(2, options_.maxConnectionsPerAddress);
    limits.headTimeoutMs = qMax(100, options_.requestHeadTimeoutMs);
    http_ = std::make_unique<GatedServer>(limits, [](int status) {
        const ReplyEnvelope::Code code = status == 413 || status == 431
                                             ? ReplyEnvelope::BodyTooLarge
                                         : status == 503 ? ReplyEnvelope::InternalError
                                                         : ReplyEnvelope::BadParameter;
        const QByteArray body =
            status == 503
                ? ReplyEnvelope::failure(code, QStringLiteral("服务器繁忙，请稍后再试"), QString())
                : ReplyEnvelope::failure(code);
        return body.toStdString();
    });
    // Multipart framing adds a little to the file itself.
    http_->set_payload_max_length(size_t(uploadBodyCap()));

    const std::string h = host.toStdString();
    port_ = http_->bindTo(h, port);
    if (port_ <= 0) {
        http_.reset();
        return false;
    }
    const QString shownHost =
        host.contains(QLatin1Char(':')) ? QStringLiteral("[%1]").arg(host) : host;
    publicUrl_ = options_.publicUrl.isEmpty()
                     ? QStringLiteral("http://%1:%2").arg(shownHost).arg(port_)
                     : options_.publicUrl;
    while (publicUrl_.endsWith(QLatin1Char('/'))) publicUrl_.chop(1);
    directory_ = std::make_unique<Directory>(db_, publicUrl_);
    orgCache_ = std::make_unique<OrgCache>(db_, directory_.get());
    projects_ = std::make_unique<ProjectEditor>(db_, directory_.get(), sessions_.get(), rooms_);

    // Unknown accounts are checked against a hash of the same cost as the real ones, so a
    // wrong password takes as long for either, whatever cost the directory was seeded with.
    {
        QSqlQuery q(db_->connection());
        int iterations = PasswordHasher::kDefaultIterations;
        if (q.exec(QStringLiteral("SELECT password_hash FROM users ORDER BY id LIMIT 1")) &&
            q.next()) {
            iterations = PasswordHasher::iterationsOf(q.value(0).toString(), iterations);
        }
        dummyHash_ = PasswordHasher(iterations).hash(QStringLiteral("no such account"));
    }

    auto handler = [this](const httplib::Request& req, httplib::Response& res) {
        guarded(req, res, [&] { dispatch(req, res); });
    };
    http_->Get(".*", handler);
    http_->Post(".*", handler);
    // Uploads stream to disk as they arrive instead of being gathered in memory first.
    http_->Post("/work/mobileTopic\\.htm",
                httplib::Server::HandlerWithContentReader(
                    [this](const httplib::Request& req, httplib::Response& res,
                           const httplib::ContentReader& reader) {
                        guarded(req, res, [&] {
                            if (param(req, "m") != QLatin1String("uploadFromPC")) {
                                if (auto* s = GatedStream::current()) s->closeAfterReply();
                                return fail(res, req, ReplyEnvelope::BadParameter);
                            }
                            upload(req, res, reader);
                        });
                    }));
    http_->set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
        return admitBody(req, res) ? httplib::Server::HandlerResponse::Unhandled
                                   : httplib::Server::HandlerResponse::Handled;
    });
    http_->set_error_handler([this](const httplib::Request& req, httplib::Response& res) {
        // Called for every status from 400 on; a handler's own answer stands.
        if (!res.body.empty()) return;
        const GatedStream* stream = GatedStream::current();
        ReplyEnvelope::Code code = res.status == 413   ? ReplyEnvelope::BodyTooLarge
                                   : res.status == 404 ? ReplyEnvelope::UnknownAddress
                                   : res.status < 500  ? ReplyEnvelope::BadParameter
                                                       : ReplyEnvelope::InternalError;
        if (stream && stream->bodyTooLarge()) {
            res.status = 413;
            code = isUpload(req) ? ReplyEnvelope::FileTooLarge : ReplyEnvelope::BodyTooLarge;
            qInfo("%s refused (%d): body over %zu bytes", req.path.c_str(), int(code),
                  stream->bodyCap());
        } else if (stream && stream->timedOut()) {
            res.status = 408;
            qInfo("%s refused (1001): body too slow", req.path.c_str());
        }
        fail(res, req, code);
    });
    http_->set_exception_handler(
        [](const httplib::Request& req, httplib::Response& res, std::exception_ptr) {
            res.status = 500;
            fail(res, req, ReplyEnvelope::InternalError);
        });
    if (!http_->startServing()) {
        http_.reset();
        return false;
    }
    return true;
}

qint64 BackendServer::uploadBodyCap() const { return options_.uploadLimit + 64 * 1024; }

bool BackendServer::isUpload(const httplib::Request& req) {
    return req.path == "/work/mobileTopic.htm";
}

bool BackendServer::admitBody(const httplib::Request& req, httplib::Response& res) {
    GatedStream* stream = GatedStream::current();
    const bool upload = isUpload(req);
    const qint64 cap = upload ? uploadBodyCap() : qint64(http_->limits().defaultBodyCap);
    if (stream) stream->setBodyCap(size_t(cap));
    const std::string encoding = req.get_header_value("Content-Encoding");
    // A compressed body could inflate far past any cap; no client of ours sends one.
    if (!encoding.empty() && encoding != "identity") {
        qInfo("%s refused (1001): compressed request body", req.path.c_str());
        res.status = 415;
    } else if (req.has_header("Content-Length") &&
               req.get_header_value<uint64_t>("Content-Length") > uint64_t(cap)) {
        qInfo("%s refused (%d): body of %s bytes", req.path.c_str(),
              upload ? int(ReplyEnvelope::FileTooLarge) : int(ReplyEnvelope::BodyTooLarge),
              req.get_header_value("Content-Length").c_str());
        res.status = 413;
    } else {
        return true;
    }
    // The body is left unread, so the connection cannot carry another request.
    if (stream) stream->closeAfterReply();
    res.set_header("Connection", "close");
    fail(res, req,
         res.status == 415 ? ReplyEnvelope::BadParameter
         : upload          ? ReplyEnvelope::FileTooLarge
                           : ReplyEnvelope::BodyTooLarge);
    return false;
}

template <typename Handler>
void BackendServer::guarded(const httplib::Request& req, httplib::Response& res,
                            Handler&& handler) {
    Database::beginRequest();
    handler();
    if (!Database::requestFailed()) return;
    // Whatever the handler made of it, a failed statement is never an empty success, a
    // "wrong password" or "not found".
    qWarning("%s answered 1500: the database failed", req.path.c_str());
    const bool closeAfter = res.get_header_value("Connection") == "close";
    res = httplib::Response();
    res.status = 500;
    if (closeAfter) res.set_header("Connection", "close");
    fail(res, req, ReplyEnvelope::InternalError);
}

void BackendServer::warmUp() {
    if (!orgCache_ || warmUp_.joinable()) return;
    warmUp_ = std::thread([this] {
        QSqlQuery q(db_->connection());
        QList<qint64> companies;
        if (q.exec(QStringLiteral("SELECT id FROM company"))) {
            while (q.next()) companies << q.value(0).toLongLong();
        }
        for (qint64 company : companies) {
            orgCache_->gzipEnvelope(company, 0, QByteArray(), ReplyEnvelope::successPrefix(),
                                    ReplyEnvelope::successSuffix(QString()));
        }
    });
}

void BackendServer::stop() {
    if (warmUp_.joinable()) warmUp_.join();
    if (!http_) return;
    http_->stopServing();
    http_.reset();
}

QByteArray BackendServer::urlTable(const QString& base) {
    const QPair<const char*, const char*> table[] = {
        {"UrlHome", ""},
        {"UrlLogin", "/work/checkIn.htm?m=MobileLogin"},
        {"UrlOrg", "/work/mobileUserInfo.htm?m=findAllUserAndDept"},
        {"UrlGroupList", "/work/project.htm?m=myProjectList"},
        {"UrlGroupMember", "/work/gen.htm?m=user"},
        {"UrlGroupByID", "/work/mobileProject.htm?m=queryProjectById"},
        {"UrlGroupByOpIM", "/work/mobileProject.htm?m=projectInfoByOpenimId"},
        {"UrlUsers", "/work/mobileUserInfo.htm?m=findSomeOne"},
        {"UrlMD5", "/rest/auth/client.htm"},
        {"UrlOpen", "/work/checkIn.htm"},
        {"UrlDetail", "/work/UserSet.htm"},
        {"UrlDownload", "/work/attachment"},
        {"UrlUpload", "/work/mobileTopic.htm?m=uploadFromPC"},
        {"UrlDelTribe", "/work/editProj.htm"},
        {"UrlTaskReaded", "/work/notifies.htm?m=getTaskReadFlag"},
    };
    QJsonObject urls;
    for (const auto& entry : table) {
        urls.insert(QLatin1String(entry.first), base + QLatin1String(entry.second));
    }
    return QJsonDocument(urls).toJson();
}

void BackendServer::directoryChanged() {
    if (orgCache_) orgCache_->invalidate();
}

qint64 BackendServer::sessionUser(const httplib::Request& req) {
    QByteArray id = param(req, "sessionId").toLatin1();
    if (id.isEmpty()) {
        const QByteArray cookies = QByteArray::fromStdString(req.get_header_value("Cookie"));
        for (const QByteArray& c : cookies.split(';')) {
            const QByteArray kv = c.trimmed();
            if (kv.startsWith(QByteArray(kSessionCookie) + '='))
                id = kv.mid(int(sizeof kSessionCookie));
        }
    }
    return id.isEmpty() ? 0 : sessions_->userOf(id);
}

qint64 BackendServer::signedIn(const httplib::Request& req, httplib::Response& res) {
    const qint64 user = sessionUser(req);
    if (user == 0) {
        qInfo("%s refused (1003): no session", req.path.c_str());
        fail(res, req, ReplyEnvelope::NotSignedIn);
    }
    return user;
}

bool BackendServer::sameCompany(const httplib::Request& req, httplib::Response& res, qint64 caller,
                                qint64 company) {
    if (company != 0 && company == directory_->companyOf(caller)) return true;
    qInfo("%s refused (1006): outside the caller's company", req.path.c_str());
    fail(res, req, ReplyEnvelope::NotFound);
    return false;
}

QString BackendServer::projectSign(qint64 projectId, qint64 forUser) {
    // A project's sign is its owner's signature token, shown only to the signed-in owner.
    if (forUser == 0 || directory_->projectOwner(projectId) != forUser) return QString();
    return QString::fromLatin1(sessions_->tokenOf(forUser));
}

void BackendServer::dispatch(const httplib::Request& req, httplib::Response& res) {
    const QString path = QString::fromStdString(req.path);
    const QString m = param(req, "m");
    static const QRegularExpression avatarPath(QStringLiteral("^/avatar/([0-9]{1,18})\\.png"));
    static const QRegularExpression attachmentPath(
        QStringLiteral("^/work/attachment(?:/([^/]*))?"));

    if (path == QLatin1String("/work/checkIn.htm")) {
        if (m == QLatin1String("MobileLogin")) {
            // Credentials in a URL end up in logs and histories.
            if (req.method != "POST") {
                qInfo("checkIn refused (1001): log-in by %s", req.method.c_str());
                return fail(res, req, ReplyEnvelope::BadParameter);
            }
            return login(req, res);
        }
        return reply(res, PageRenderer::checkIn(), kHtml);
    }
    if (path == QLatin1String("/rest/auth/client.htm")) return token(req, res);
    if (path == QLatin1String("/work/mobileUserInfo.htm")) {
        if (m == QLatin1String("findAllUserAndDept")) return organisation(req, res);
        if (m == QLatin1String("findSomeOne")) return someColleagues(req, res);
        return fail(res, req, ReplyEnvelope::BadParameter);
    }
    if (path == QLatin1String("/work/project.htm")) {
        if (m == QLatin1String("myProjectList")) return projectList(req, res);
        if (m == QLatin1String("tasks")) return projectPage(req, res);
        return fail(res, req, ReplyEnvelope::BadParameter);
    }
    if (path == QLatin1String("/work/gen.htm") && m == QLatin1String("user")) {
        return projectMembers(req, res);
    }
    if (path == QLatin1String("/work/mobileProject.htm")) {
        if (m == QLatin1String("queryProjectById")) return projectById(req, res, "projectId");
        if (m == QLatin1String("projectInfoByOpenimId")) return projectById(req, res, "openimId");
        return fail(res, req, ReplyEnvelope::BadParameter);
    }
    if (path == QLatin1String("/work/editProj.htm")) return editProject(req, res);
    if (path == QLatin1String("/work/notifies.htm")) return taskReadFlags(req, res);
    if (path == QLatin1String("/work/mobileTopic.htm") && m == QLatin1String("uploadFromPC")) {
        // Uploads have a handler of their own that streams the body; what reaches this one
        // has no body to stream.
        return fail(res, req, ReplyEnvelope::BadParameter);
    }
    if (const auto match = attachmentPath.match(path); match.hasMatch()) {
        const QString id = match.captured(1).isEmpty() ? param(req, "id") : match.captured(1);
        return download(req, res, id);
    }
    if (path == QLatin1String("/work/task.htm")) return taskPage(req, res);
    if (path == QLatin1String("/work/goals.htm")) return goalsPage(req, res);
    if (const auto match = avatarPath.match(path); match.hasMatch()) {
        return avatar(res, match.captured(1));
    }
    if (path == QLatin1String("/update/QX_update.ini")) return updateDescription(res);
    if (path.startsWith(QLatin1String("/update/")))
        return updatePackage(res, path.mid(int(qstrlen("/update/"))));
    if (path == QLatin1String("/work/UserSet.htm")) {
        const qint64 user = sessionUser(req);
        return reply(res,
                     PageRenderer::userSettings(user ? directory_->loginUser(user) : QJsonObject()),
                     kHtml);
    }
    if (path == QLatin1String("/work/findPassword.htm")) {
        return reply(res, PageRenderer::findPassword(), kHtml);
    }
    if (path == QLatin1String("/work/invite.htm"))
        return reply(res, PageRenderer::invitation(), kHtml);
    if (path == QLatin1String("/") || path.isEmpty())
        return reply(res, PageRenderer::home(QString()), kHtml);
    res.status = 404;
    fail(res, req, ReplyEnvelope::UnknownAddress);
}

void BackendServer::login(const httplib::Request& req, httplib::Response& res) {
    const QString userName = param(req, "username");
    const QString password = param(req, "password");
    const QString client = param(req, "client");
    qint64 clientKind = 0;
    if (userName.isEmpty() || userName.size() > 100 || password.isEmpty() ||
        password.size() > 200 || !parseId(client, &clientKind)) {
        return fail(res, req, ReplyEnvelope::BadParameter);
    }
    const QString address = QString::fromStdString(req.remote_addr);
    if (throttle_->waitMs(userName, address) > 0) {
        qInfo("checkIn refused (1005): paused after wrong passwords");
        return fail(res, req, ReplyEnvelope::TooManyAttempts);
    }

    qint64 userId = 0;
    QString stored;
    const bool known = directory_->findAccount(userName, &userId, &stored);
    // A directory that cannot be read says nothing about the password.
    if (Database::requestFailed()) return;
    const bool verified = PasswordHasher::verify(password, known ? stored : dummyHash_) && known;
    if (!verified) {
        throttle_->failed(userName, address);
        return fail(res, req, ReplyEnvelope::WrongCredentials);
    }
    throttle_->succeeded(userName, address);

    QJsonObject user = directory_->loginUser(userId);
    if (user.isEmpty()) return fail(res, req, ReplyEnvelope::InternalError);
    const QByteArray session = sessions_->open(userId);
    user.insert(QStringLiteral("md5Sign"), QString::fromLatin1(sessions_->tokenOf(userId)));
    user.insert(QStringLiteral("sessionId"), QString::fromLatin1(session));
    user.insert(QStringLiteral("authSeconds"), QString::number(sessions_->lifetimeSeconds()));
    user.insert(QStringLiteral("imAccount"), QString::number(userId));
    user.insert(QStringLiteral("imDomain"), options_.imDomain);
    user.insert(QStringLiteral("imHost"), options_.imHost);
    user.insert(QStringLiteral("imPort"), QString::number(options_.imPort));
    // The back end's own IM account: the client believes membership notices from it only.
    user.insert(QStringLiteral("imAuthority"), options_.imAuthority);
    user.insert(QStringLiteral("iosVersion"), QString());
    user.insert(QStringLiteral("androidVersion"), QString());
    res.set_header("Set-Cookie",
                   QStringLiteral("%1=%2; Path=/; HttpOnly; Max-Age=%3")
                       .arg(QLatin1String(kSessionCookie), QString::fromLatin1(session))
                       .arg(sessions_->lifetimeSeconds())
                       .toStdString());
    ok(res, req, user);
}

void BackendServer::token(const httplib::Request& req, httplib::Response& res) {
    const qint64 user = sessionUser(req);
    if (user == 0) return fail(res, req, ReplyEnvelope::NotSignedIn);
    ok(res, req,
       QJsonObject{{QStringLiteral("md5Sign"), QString::fromLatin1(sessions_->tokenOf(user))},
                   {QStringLiteral("userId"), QString::number(user)}});
}

void BackendServer::organisation(const httplib::Request& req, httplib::Response& res) {
    const qint64 caller = signedIn(req, res);
    if (caller == 0) return;
    qint64 userId = 0;
    qint64 companyId = 0;
    if (!parseId(param(req, "userId"), &userId) || !parseId(param(req, "companyId"), &companyId)) {
        return fail(res, req, ReplyEnvelope::BadParameter);
    }
    if (!sameCompany(req, res, caller, directory_->companyOf(userId))) return;
    if (companyId != directory_->companyOf(caller)) {
        qInfo("%s refused (1004): another company's organisation", req.path.c_str());
        return fail(res, req, ReplyEnvelope::Forbidden);
    }
    const QByteArray token = caller == userId ? sessions_->tokenOf(userId) : QByteArray();
    // The client's network stack accepts gzip; 100,000 colleagues shrink about sixfold.
    const bool gzip = req.get_header_value("Accept-Encoding").find("gzip") != std::string::npos;
    const auto parts = std::make_shared<OrgCache::Parts>(
        orgCache_->envelopeParts(companyId, userId, token, ReplyEnvelope::successPrefix(),
                                 ReplyEnvelope::successSuffix(param(req, "client")), gzip));
    if (Database::requestFailed()) return;  // answered as a failure by the caller
    if (parts->isEmpty()) return fail(res, req, ReplyEnvelope::NotFound);
    if (gzip) res.set_header("Content-Encoding", "gzip");
    // Sent from the shared cached parts as the peer takes them: nothing is copied per request.
    res.set_content_provider(
        size_t(parts->size), kJson, [parts](size_t offset, size_t length, httplib::DataSink& sink) {
            qint64 at = qint64(offset);
            for (const QByteArray& part : qAsConst(parts->parts)) {
                if (at >= part.size()) {
                    at -= part.size();
                    continue;
                }
                const qint64 n =
                    qMin<qint64>(qMin<qint64>(part.size() - at, qint64(length)), 256 * 1024);
                return sink.write(part.constData() + at, size_t(n));
            }
            return false;
        });
}

void BackendServer::someColleagues(const httplib::Request& req, httplib::Response& res) {
    const qint64 caller = signedIn(req, res);
    if (caller == 0) return;
    QList<qint64> ids;
    if (!parseIdList(param(req, "manyUserIds"), &ids))
        return fail(res, req, ReplyEnvelope::BadParameter);
    // Colleagues of other companies are left out like unknown ids.
    ok(res, req, directory_->colleagues(directory_->inCompany(directory_->companyOf(caller), ids)));
}

void BackendServer::projectList(const httplib::Request& req, httplib::Response& res) {
    const qint64 viewer = signedIn(req, res);
    if (viewer == 0) return;
    qint64 userId = viewer;
    const QString userText = param(req, "userId");
    if (!userText.isEmpty() && !parseId(userText, &userId))
        return fail(res, req, ReplyEnvelope::BadParameter);
    // One's own list only: which projects a colleague is in is theirs to tell.
    if (userId != viewer) {
        qInfo("%s refused (1004): another colleague's project list", req.path.c_str());
        return fail(res, req, ReplyEnvelope::Forbidden);
    }
    QJsonArray projects = directory_->projectsOf(userId);
    for (int i = 0; i < projects.size(); ++i) {
        QJsonObject p = projects[i].toObject();
        p.insert(QStringLiteral("sign"),
                 projectSign(p[QStringLiteral("id")].toString().toLongLong(), viewer));
        projects[i] = p;
    }
    ok(res, req, QJsonObject{{QStringLiteral("projectList"), projects}});
}

void BackendServer::projectMembers(const httplib::Request& req, httplib::Response& res) {
    const qint64 caller = signedIn(req, res);
    if (caller == 0) return;
    qint64 projectId = 0;
    if (!parseId(param(req, "projectId"), &projectId))
        return fail(res, req, ReplyEnvelope::BadParameter);
    if (directory_->projectOwner(projectId) == 0) return fail(res, req, ReplyEnvelope::NotFound);
    if (!sameCompany(req, res, caller, directory_->projectCompany(projectId))) return;
    ok(res, req,
       QJsonObject{{QStringLiteral("projectId"), QString::number(projectId)},
                   {QStringLiteral("userList"), directory_->projectMembers(projectId)}});
}

void BackendServer::projectById(const httplib::Request& req, httplib::Response& res,
                                const char* idParam) {
    const qint64 caller = signedIn(req, res);
    if (caller == 0) return;
    qint64 projectId = 0;
    if (!parseId(param(req, idParam), &projectId))
        return fail(res, req, ReplyEnvelope::BadParameter);
    QJsonObject project = directory_->project(projectId);
    if (project.isEmpty()) return fail(res, req, ReplyEnvelope::NotFound);
    if (!sameCompany(req, res, caller, directory_->projectCompany(projectId))) return;
    project.insert(QStringLiteral("sign"), projectSign(projectId, caller));
    ok(res, req, project);
}

void BackendServer::editProject(const httplib::Request& req, httplib::Response& res) {
    projects_->handle(req, res, sessionUser(req));
}

void BackendServer::taskReadFlags(const httplib::Request& req, httplib::Response& res) {
    const qint64 caller = signedIn(req, res);
    if (caller == 0) return;
    const QString m = param(req, "m");
    qint64 userId = caller;
    const QString userText = param(req, "userId");
    if (!userText.isEmpty() && !parseId(userText, &userId))
        return fail(res, req, ReplyEnvelope::BadParameter);
    // Read flags are the caller's own: nobody reads or sets them for someone else.
    if (userId != caller) {
        qInfo("%s refused (1004): another colleague's read flags", req.path.c_str());
        return fail(res, req, ReplyEnvelope::Forbidden);
    }
    const qint64 company = directory_->companyOf(caller);
    if (m == QLatin1String("getTaskReadFlag")) {
        QList<qint64> ids;
        if (!parseIdList(param(req, "taskIds"), &ids))
            return fail(res, req, ReplyEnvelope::BadParameter);
        // Tasks of other companies are left out like unknown ids.
        QList<qint64> own;
        for (qint64 id : qAsConst(ids)) {
            if (directory_->taskCompany(id) == company) own << id;
        }
        return ok(res, req, directory_->readFlags(userId, own));
    }
    if (m == QLatin1String("setTaskReadFlag")) {
        qint64 taskId = 0;
        if (!parseId(param(req, "taskId"), &taskId))
            return fail(res, req, ReplyEnvelope::BadParameter);
        if (!sameCompany(req, res, caller, directory_->taskCompany(taskId))) return;
        if (!directory_->markTaskRead(taskId, userId))
            return fail(res, req, ReplyEnvelope::NotFound);
        return ok(res, req, directory_->readFlags(userId, {taskId}));
    }
    fail(res, req, ReplyEnvelope::BadParameter);
}

void BackendServer::upload(const httplib::Request& req, httplib::Response& res,
                           const httplib::ContentReader& reader) {
    GatedStream* stream = GatedStream::current();
    // Until the body has been read to its end, the connection cannot carry another request.
    if (stream) stream->closeAfterReply();
    if (!req.is_multipart_form_data()) return fail(res, req, ReplyEnvelope::BadParameter);
    // Always in the caller's own name; a userId field is not trusted. Nobody else's body is
    // read at all.
    const qint64 owner = signedIn(req, res);
    if (owner == 0) return;
    // The first part that carries a file name is the file; it goes straight to disk.
    QString storedName;
    std::unique_ptr<QSaveFile> file;
    QString clientName;
    bool inFile = false;
    bool seenFile = false;
    bool tooLarge = false;
    bool writeFailed = false;
    qint64 size = 0;
    const bool read = reader(
        [&](const httplib::MultipartFormData& part) {
            inFile = !seenFile && !part.filename.empty();
            if (inFile) {
                seenFile = true;
                clientName = QString::fromStdString(part.filename);
                file = files_->begin(&storedName);
                writeFailed = !file;
            }
            return !writeFailed;
        },
        [&](const char* data, size_t length) {
            if (!inFile) return true;  // other fields are capped with the body and dropped
            size += qint64(length);
            if (size > files_->maxBytes()) {
                tooLarge = true;
                return false;
            }
            if (file->write(data, qint64(length)) != qint64(length)) {
                writeFailed = true;
                return false;
            }
            return true;
        });
    // An unfinished file is discarded with its QSaveFile: nothing is left behind.
    if (tooLarge || (stream && stream->bodyTooLarge())) {
        res.status = 413;
        qInfo("%s refused (1007): file over %lld bytes", req.path.c_str(), files_->maxBytes());
        return fail(res, req, ReplyEnvelope::FileTooLarge);
    }
    if (writeFailed) {
        qWarning("%s failed: cannot write the file: %s", req.path.c_str(),
                 file ? qPrintable(file->errorString()) : "no file");
        res.status = 500;
        return fail(res, req, ReplyEnvelope::InternalError);
    }
    if (!read || !seenFile) {
        if (stream && stream->timedOut()) res.status = 408;
        qInfo("%s refused (1001): %s", req.path.c_str(),
              !read ? "the body ended early or too slowly" : "no file part");
        return fail(res, req, ReplyEnvelope::BadParameter);
    }
    if (stream) stream->keepAfterReply();
    const QString name = FileStore::sanitizeName(clientName);
    if (name.isEmpty()) return fail(res, req, ReplyEnvelope::BadFileName);
    if (!file->commit()) {
        qWarning("%s failed: cannot keep the file: %s", req.path.c_str(),
                 qPrintable(file->errorString()));
        res.status = 500;
        return fail(res, req, ReplyEnvelope::InternalError);
    }
    const qint64 id = directory_->addAttachment(owner, name, storedName, size);
    if (id == 0) {
        // Not recorded, so not kept: a file nobody can download is only a leak.
        files_->remove(storedName);
        return;  // the database failure is answered by the caller
    }
    ok(res, req,
       QJsonObject{
           {QStringLiteral("id"), QString::number(id)},
           {QStringLiteral("fileName"), name},
           {QStringLiteral("fileSize"), QString::number(size)},
           {QStringLiteral("url"), publicUrl_ + QStringLiteral("/work/attachment/%1").arg(id)}});
}

void BackendServer::download(const httplib::Request& req, httplib::Response& res,
                             const QString& idText) {
    const qint64 caller = signedIn(req, res);
    if (caller == 0) return;
    qint64 id = 0;
    if (!parseId(idText, &id)) return fail(res, req, ReplyEnvelope::BadParameter);
    QString name;
    QString stored;
    qint64 size = 0;
    qint64 owner = 0;
    if (!directory_->attachment(id, &name, &stored, &size, &owner))
        return fail(res, req, ReplyEnvelope::NotFound);
    if (!sameCompany(req, res, caller, directory_->companyOf(owner))) return;
    QFile file(files_->pathOf(stored));
    if (file.fileName().isEmpty() || !file.open(QIODevice::ReadOnly)) {
        return fail(res, req, ReplyEnvelope::NotFound);
    }
    const QByteArray data = file.readAll();
    res.set_header("Content-Disposition",
                   ("attachment; filename*=UTF-8''" + QUrl::toPercentEncoding(name)).toStdString());
    reply(res, data, "application/octet-stream");
}

void BackendServer::taskPage(const httplib::Request& req, httplib::Response& res) {
    const qint64 caller = signedIn(req, res);
    if (caller == 0) return;
    const QString m = param(req, "m");
    if (m == QLatin1String("create")) {
        qint64 projectId = 0;
        if (!parseId(param(req, "projectId"), &projectId))
            return fail(res, req, ReplyEnvelope::BadParameter);
        const QJsonObject project = directory_->project(projectId);
        if (project.isEmpty()) return fail(res, req, ReplyEnvelope::NotFound);
        if (!sameCompany(req, res, caller, directory_->projectCompany(projectId))) return;
        return reply(res, PageRenderer::taskCreation(project), kHtml);
    }
    qint64 taskId = 0;
    if (!parseId(param(req, "taskId"), &taskId)) return fail(res, req, ReplyEnvelope::BadParameter);
    const QJsonObject task = directory_->task(taskId);
    if (task.isEmpty()) return fail(res, req, ReplyEnvelope::NotFound);
    if (!sameCompany(req, res, caller, directory_->taskCompany(taskId))) return;
    // Opening the task is reading it, by the signed-in caller only.
    const bool read = directory_->markTaskRead(taskId, caller);
    reply(res, PageRenderer::task(task, read), kHtml);
}

void BackendServer::projectPage(const httplib::Request& req, httplib::Response& res) {
    const qint64 caller = signedIn(req, res);
    if (caller == 0) return;
    qint64 projectId = 0;
    if (!parseId(param(req, "projectId"), &projectId))
        return fail(res, req, ReplyEnvelope::BadParameter);
    const QJsonObject project = directory_->project(projectId);
    if (project.isEmpty()) return fail(res, req, ReplyEnvelope::NotFound);
    if (!sameCompany(req, res, caller, directory_->projectCompany(projectId))) return;
    reply(res, PageRenderer::projectTasks(project, directory_->tasksOf(projectId)), kHtml);
}

void BackendServer::goalsPage(const httplib::Request& req, httplib::Response& res) {
    const qint64 caller = signedIn(req, res);
    if (caller == 0) return;
    qint64 projectId = 0;
    if (!parseId(param(req, "projectId"), &projectId))
        return fail(res, req, ReplyEnvelope::BadParameter);
    const QJsonObject project = directory_->project(projectId);
    if (project.isEmpty()) return fail(res, req, ReplyEnvelope::NotFound);
    if (!sameCompany(req, res, caller, directory_->projectCompany(projectId))) return;
    reply(res,
          PageRenderer::goals(project, directory_->tasksOf(projectId),
                              directory_->projectMembers(projectId)),
          kHtml);
}

void BackendServer::avatar(httplib::Response& res, const QString& idText) {
    qint64 id = 0;
    if (!parseId(idText, &id) || directory_->companyOf(id) == 0) {
        res.status = 404;
        return reply(res, ReplyEnvelope::failure(ReplyEnvelope::NotFound));
    }
    reply(res, AvatarPainter::png(id), "image/png");
}

void BackendServer::updateDescription(httplib::Response& res) {
    if (options_.updateDir.isEmpty()) {
        const QString ini = QStringLiteral(
                                "[info]\nExeVersion=%1\nQtVersion=%2\n\n[General]\n"
                                "url_maximum=%3/update/Quelix-full-%1.zip\n"
                                "url_minimum=%3/update/Quelix-%1.zip\n\n[mac]\n"
                                "url_maximum=%3/update/Quelix-full-%1.dmg\n"
                                "url_minimum=%3/update/Quelix-%1.dmg\n")
                                .arg(options_.clientVersion, options_.frameworkVersion, publicUrl_);
        return reply(res, ini.toUtf8(), "text/plain;charset=UTF-8");
    }
    // The release as published in the update folder (its [General] keys are top-level); each
    // package with its size and SHA-256, so the loader can refuse a cut or altered download. Read
    // per request: a release is published by replacing release.ini, without restarting the service.
    QSettings release(QDir(options_.updateDir).filePath(QStringLiteral("release.ini")),
                      QSettings::IniFormat);
    QString ini =
        QStringLiteral("[info]\nExeVersion=%1\nQtVersion=%2\n\n[General]\n")
            .arg(
                release.value(QStringLiteral("info/ExeVersion"), options_.clientVersion).toString(),
                release.value(QStringLiteral("info/QtVersion"), options_.frameworkVersion)
                    .toString());
    for (const char* kind : {"maximum", "minimum"}) {
        const QString name =
            release.value(QStringLiteral("package_") + QLatin1String(kind)).toString();
        QFile file(QDir(options_.updateDir).filePath(name));
        if (name.isEmpty() || name.contains(QLatin1Char('/')) || !file.open(QIODevice::ReadOnly))
            continue;
        QCryptographicHash sha(QCryptographicHash::Sha256);
        sha.addData(&file);
        ini += QStringLiteral("url_%1=%2/update/%3\nsize_%1=%4\nsha256_%1=%5\n")
                   .arg(QLatin1String(kind), publicUrl_,
                        QString::fromUtf8(QUrl::toPercentEncoding(name)),
                        QString::number(file.size()), QString::fromLatin1(sha.result().toHex()));
    }
    reply(res, ini.toUtf8(), "text/plain;charset=UTF-8");
}

void BackendServer::updatePackage(httplib::Response& res, const QString& name) {
    // Only plain file names inside the update folder; the release description is not a
    // package.
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9][A-Za-z0-9._+-]{0,127}$"));
    QFile file(options_.updateDir.isEmpty() ? QString() : QDir(options_.updateDir).filePath(name));
    if (!plain.match(name).hasMatch() || name == QLatin1String("release.ini") ||
        !file.open(QIODevice::ReadOnly)) {
        res.status = 404;
        return reply(res, ReplyEnvelope::failure(ReplyEnvelope::NotFound));
    }
    auto shared = std::make_shared<QFile>(file.fileName());
    if (!shared->open(QIODevice::ReadOnly)) {
        res.status = 500;
        return reply(res, ReplyEnvelope::failure(ReplyEnvelope::NotFound));
    }
    // Streamed, so a large package never sits whole in memory.
    res.set_content_provider(size_t(shared->size()), "application/octet-stream",
                             [shared](size_t offset, size_t length, httplib::DataSink& sink) {
                                 if (!shared->seek(qint64(offset))) return false;
                                 const QByteArray chunk =
                                     shared->read(qint64(qMin<size_t>(length, 256 * 1024)));
                                 if (chunk.isEmpty()) return false;
                                 sink.write(chunk.constData(), size_t(chunk.size()));
                                 return true;
                             });
}
