#include "backendserver.h"

#include "apihelpers.h"
#include "attachmenthandler.h"
#include "database.h"
#include "directory.h"
#include "filestore.h"
#include "gatedserver.h"
#include "improvisioner.h"
#include "loginthrottle.h"
#include "orgcache.h"
#include "origincheck.h"
#include "pagehandler.h"
#include "pagerenderer.h"
#include "passwordhasher.h"
#include "projecteditor.h"
#include "replyenvelope.h"
#include "requestaccess.h"
#include "sessionstore.h"
#include "taskeditor.h"
#include "updatepublisher.h"

#include "sdk/endpoint_list.h"

#include <httplib.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSqlQuery>
#include <QVariant>

using api::fail;
using api::kHtml;
using api::kJson;
using api::ok;
using api::param;
using api::parseId;
using api::parseIdList;
using api::reply;

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
      files_(std::make_unique<FileStore>(options.filesDir, options.uploadLimit)),
      updates_(std::make_unique<UpdatePublisher>(options.updateDir, options.clientVersion,
                                                 options.frameworkVersion)) {}

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
    if (!options_.tlsCert.isEmpty()) {
        std::string error;
        if (!http_->useTls(options_.tlsCert.toStdString(), options_.tlsKey.toStdString(), &error)) {
            qWarning("backend: cannot serve HTTPS: %s", error.c_str());
            http_.reset();
            return false;
        }
    }

    const std::string h = host.toStdString();
    port_ = http_->bindTo(h, port);
    if (port_ <= 0) {
        http_.reset();
        return false;
    }
    const QString shownHost =
        host.contains(QLatin1Char(':')) ? QStringLiteral("[%1]").arg(host) : host;
    const bool tls = !options_.tlsCert.isEmpty();
    publicUrl_ = options_.publicUrl.isEmpty()
                     ? QStringLiteral("%1://%2:%3")
                           .arg(tls ? QStringLiteral("https") : QStringLiteral("http"), shownHost)
                           .arg(port_)
                     : options_.publicUrl;
    while (publicUrl_.endsWith(QLatin1Char('/'))) publicUrl_.chop(1);
    origins_ = std::make_unique<OriginCheck>(publicUrl_, tls);
    directory_ = std::make_unique<Directory>(db_, publicUrl_);
    orgCache_ = std::make_unique<OrgCache>(db_, directory_.get());
    access_ = std::make_unique<RequestAccess>(sessions_.get(), directory_.get());
    tasks_ = std::make_unique<TaskEditor>(db_, directory_.get(), rooms_);
    tasks_->setAccountMade([this](qint64 userId) { accountMade(userId); });
    pages_ = std::make_unique<PageHandler>(directory_.get(), access_.get(), tasks_.get());
    projects_ = std::make_unique<ProjectEditor>(db_, directory_.get(), sessions_.get(), rooms_);
    attachments_ = std::make_unique<AttachmentHandler>(directory_.get(), access_.get(),
                                                       files_.get(), publicUrl_);

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
                            attachments_->upload(req, res, reader);
                        });
                    }));
    http_->set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
        return admitOrigin(req, res) && admitBody(req, res)
                   ? httplib::Server::HandlerResponse::Unhandled
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

bool BackendServer::admitOrigin(const httplib::Request& req, httplib::Response& res) {
    if (!OriginCheck::changesState(req)) return true;
    const QString foreign = origins_->foreignOrigin(req);
    if (foreign.isEmpty()) return true;
    qInfo("%s refused (1004): a change asked from %s", req.path.c_str(), qPrintable(foreign));
    res.status = 403;
    // The body is left unread, so the connection cannot carry another request.
    if (auto* stream = GatedStream::current()) stream->closeAfterReply();
    res.set_header("Connection", "close");
    fail(res, req, ReplyEnvelope::Forbidden);
    return false;
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
            orgCache_->envelopeParts(company, 0, QByteArray(), QByteArray(), QByteArray(), true);
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

// An account made while the server runs gets its IM account at once, not at the next
// start: messages to it would otherwise bounce. One at a time (a provisioner is not made
// to be run twice at once); a failure is logged and the next start provisions it again.
void BackendServer::accountMade(qint64 userId) {
    directoryChanged();
    if (!provisioner_) return;
    const QString secret = directory_->imSecret(userId);
    if (secret.isEmpty()) {
        qWarning("provisioning: account %lld has no IM secret; not provisioned", userId);
        return;
    }
    QString error;
    std::lock_guard<std::mutex> guard(provisionLock_);
    if (provisioner_->provision({{QString::number(userId), secret}}, &error))
        qInfo("provisioning: IM account %lld made", userId);
    else
        qWarning("provisioning: IM account %lld not made (the next start tries again): %s", userId,
                 qPrintable(error));
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
        if (m == QLatin1String("tasks")) return pages_->projectTasks(req, res);
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
        return attachments_->download(req, res, id);
    }
    if (path == QLatin1String("/work/task.htm")) return pages_->task(req, res);
    if (path == QLatin1String("/work/goals.htm")) return pages_->goals(req, res);
    if (const auto match = avatarPath.match(path); match.hasMatch()) {
        return attachments_->avatar(res, match.captured(1));
    }
    if (path == QLatin1String("/update/QX_update.ini")) {
        return reply(res, updates_->description(publicUrl_), "text/plain;charset=UTF-8");
    }
    if (path.startsWith(QLatin1String("/update/")))
        return updates_->package(res, path.mid(int(qstrlen("/update/"))));
    if (path == QLatin1String("/work/UserSet.htm")) {
        const qint64 user = access_->sessionUser(req);
        return reply(res,
                     PageRenderer::userSettings(user ? directory_->loginUser(user) : QJsonObject()),
                     kHtml);
    }
    if (path == QLatin1String("/work/findPassword.htm")) {
        return reply(res, PageRenderer::findPassword(), kHtml);
    }
    if (path == QLatin1String("/work/invite.htm"))
        return reply(res, PageRenderer::invitation(), kHtml);
    if (path == QLatin1String("/") || path.isEmpty()) {
        // Signed in (the work-platform page of the client): the caller's projects and tasks.
        const qint64 user = access_->sessionUser(req);
        return reply(res, user ? tasks_->home(user) : PageRenderer::home(QString()), kHtml);
    }
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
    // The first endpoint where a client that knows one looks; every endpoint, in order, for
    // a client that can move to the next node when one is down.
    const EndpointList endpoints = EndpointList::parse(options_.imHost, options_.imPort);
    user.insert(QStringLiteral("imHost"), endpoints.current().host);
    user.insert(QStringLiteral("imPort"), QString::number(endpoints.current().port));
    user.insert(QStringLiteral("imHosts"), endpoints.toString());
    // The back end's own IM account: the client believes membership notices from it only.
    user.insert(QStringLiteral("imAuthority"), options_.imAuthority);
    user.insert(QStringLiteral("iosVersion"), QString());
    user.insert(QStringLiteral("androidVersion"), QString());
    // Strict: no other site's page can make a browser send it. Secure once we speak HTTPS.
    res.set_header(
        "Set-Cookie",
        QStringLiteral("%1=%2; Path=/; HttpOnly; SameSite=Strict; Max-Age=%3%4")
            .arg(QLatin1String(RequestAccess::kSessionCookie), QString::fromLatin1(session))
            .arg(sessions_->lifetimeSeconds())
            .arg(options_.tlsCert.isEmpty() ? QString() : QStringLiteral("; Secure"))
            .toStdString());
    ok(res, req, user);
}

void BackendServer::token(const httplib::Request& req, httplib::Response& res) {
    const qint64 user = access_->sessionUser(req);
    if (user == 0) return fail(res, req, ReplyEnvelope::NotSignedIn);
    ok(res, req,
       QJsonObject{{QStringLiteral("md5Sign"), QString::fromLatin1(sessions_->tokenOf(user))},
                   {QStringLiteral("userId"), QString::number(user)}});
}

void BackendServer::organisation(const httplib::Request& req, httplib::Response& res) {
    const qint64 caller = access_->signedIn(req, res);
    if (caller == 0) return;
    qint64 userId = 0;
    qint64 companyId = 0;
    if (!parseId(param(req, "userId"), &userId) || !parseId(param(req, "companyId"), &companyId)) {
        return fail(res, req, ReplyEnvelope::BadParameter);
    }
    if (!access_->sameCompany(req, res, caller, directory_->companyOf(userId))) return;
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
    api::replyParts(res, parts->parts, parts->size, kJson, parts);
}

void BackendServer::someColleagues(const httplib::Request& req, httplib::Response& res) {
    const qint64 caller = access_->signedIn(req, res);
    if (caller == 0) return;
    QList<qint64> ids;
    if (!parseIdList(param(req, "manyUserIds"), &ids))
        return fail(res, req, ReplyEnvelope::BadParameter);
    // Colleagues of other companies are left out like unknown ids.
    ok(res, req, directory_->colleagues(directory_->inCompany(directory_->companyOf(caller), ids)));
}

void BackendServer::projectList(const httplib::Request& req, httplib::Response& res) {
    const qint64 viewer = access_->signedIn(req, res);
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
    const qint64 caller = access_->signedIn(req, res);
    if (caller == 0) return;
    qint64 projectId = 0;
    if (!parseId(param(req, "projectId"), &projectId))
        return fail(res, req, ReplyEnvelope::BadParameter);
    if (directory_->projectOwner(projectId) == 0) return fail(res, req, ReplyEnvelope::NotFound);
    if (!access_->sameCompany(req, res, caller, directory_->projectCompany(projectId))) return;
    ok(res, req,
       QJsonObject{{QStringLiteral("projectId"), QString::number(projectId)},
                   {QStringLiteral("userList"), directory_->projectMembers(projectId)}});
}

void BackendServer::projectById(const httplib::Request& req, httplib::Response& res,
                                const char* idParam) {
    const qint64 caller = access_->signedIn(req, res);
    if (caller == 0) return;
    qint64 projectId = 0;
    if (!parseId(param(req, idParam), &projectId))
        return fail(res, req, ReplyEnvelope::BadParameter);
    QJsonObject project = directory_->project(projectId);
    if (project.isEmpty()) return fail(res, req, ReplyEnvelope::NotFound);
    if (!access_->sameCompany(req, res, caller, directory_->projectCompany(projectId))) return;
    project.insert(QStringLiteral("sign"), projectSign(projectId, caller));
    ok(res, req, project);
}

void BackendServer::editProject(const httplib::Request& req, httplib::Response& res) {
    projects_->handle(req, res, access_->sessionUser(req));
}

void BackendServer::taskReadFlags(const httplib::Request& req, httplib::Response& res) {
    const qint64 caller = access_->signedIn(req, res);
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
        if (!access_->sameCompany(req, res, caller, directory_->taskCompany(taskId))) return;
        if (req.method != "POST") {
            qInfo("%s refused (1001): a change asked by GET", req.path.c_str());
            return fail(res, req, ReplyEnvelope::BadParameter);
        }
        if (!directory_->markTaskRead(taskId, userId))
            return fail(res, req, ReplyEnvelope::NotFound);
        return ok(res, req, directory_->readFlags(userId, {taskId}));
    }
    fail(res, req, ReplyEnvelope::BadParameter);
}
