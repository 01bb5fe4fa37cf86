#include "backendserver.h"

#include "apihelpers.h"
#include "avatarpainter.h"
#include "database.h"
#include "directory.h"
#include "envelope.h"
#include "filestore.h"
#include "loginthrottle.h"
#include "orgcache.h"
#include "pagerenderer.h"
#include "passwordhasher.h"
#include "projecteditor.h"
#include "sessionstore.h"
#include "taskeditor.h"

#include <httplib.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
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
      throttle_(
          std::make_unique<LoginThrottle>(options.freeLoginAttempts, options.firstLoginPauseMs)),
      files_(std::make_unique<FileStore>(options.filesDir, options.uploadLimit)),
      dummyHash_(PasswordHasher().hash(QStringLiteral("no such account"))) {}

BackendServer::~BackendServer() { stop(); }

bool BackendServer::start(const QString& host, int port) {
    if (http_ || !files_->isReady()) return false;
    http_ = std::make_unique<httplib::Server>();
    const int threads = qMax(2, options_.threads);
    http_->new_task_queue = [threads] { return new httplib::ThreadPool(size_t(threads)); };
    // Multipart framing adds a little to the file itself.
    http_->set_payload_max_length(size_t(options_.uploadLimit) + 64 * 1024);
    http_->set_keep_alive_max_count(1000);
    // Small JSON replies on kept-alive connections would otherwise wait for delayed ACKs.
    http_->set_tcp_nodelay(true);

    const std::string h = host.toStdString();
    port_ = port == 0 ? http_->bind_to_any_port(h) : (http_->bind_to_port(h, port) ? port : -1);
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
    tasks_ = std::make_unique<TaskEditor>(db_, directory_.get(), rooms_);

    auto handler = [this](const httplib::Request& req, httplib::Response& res) {
        dispatch(req, res);
    };
    http_->Get(".*", handler);
    http_->Post(".*", handler);
    http_->set_error_handler([](const httplib::Request& req, httplib::Response& res) {
        const Envelope::Code code = res.status == 413   ? Envelope::BodyTooLarge
                                    : res.status == 404 ? Envelope::UnknownAddress
                                    : res.status < 500  ? Envelope::BadParameter
                                                        : Envelope::InternalError;
        fail(res, req, code);
    });
    http_->set_exception_handler(
        [](const httplib::Request& req, httplib::Response& res, std::exception_ptr) {
            res.status = 500;
            fail(res, req, Envelope::InternalError);
        });
    thread_ = std::thread([this] { http_->listen_after_bind(); });
    return true;
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
            orgCache_->gzipEnvelope(company, 0, QByteArray(), Envelope::successPrefix(),
                                    Envelope::successSuffix(QString()));
        }
    });
}

void BackendServer::stop() {
    if (warmUp_.joinable()) warmUp_.join();
    if (!http_) return;
    http_->stop();
    if (thread_.joinable()) thread_.join();
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

QByteArray BackendServer::sessionIdOf(const httplib::Request& req) {
    QByteArray id = param(req, "sessionId").toLatin1();
    if (id.isEmpty()) {
        const QByteArray cookies = QByteArray::fromStdString(req.get_header_value("Cookie"));
        for (const QByteArray& c : cookies.split(';')) {
            const QByteArray kv = c.trimmed();
            if (kv.startsWith(QByteArray(kSessionCookie) + '='))
                id = kv.mid(int(sizeof kSessionCookie));
        }
    }
    return id;
}

qint64 BackendServer::sessionUser(const httplib::Request& req) {
    const QByteArray id = sessionIdOf(req);
    return id.isEmpty() ? 0 : sessions_->userOf(id);
}

qint64 BackendServer::signedIn(const httplib::Request& req, httplib::Response& res) {
    const qint64 user = sessionUser(req);
    if (user == 0) {
        qInfo("%s refused (1003): no session", req.path.c_str());
        fail(res, req, Envelope::NotSignedIn);
    }
    return user;
}

bool BackendServer::sameCompany(const httplib::Request& req, httplib::Response& res, qint64 caller,
                                qint64 company) {
    if (company != 0 && company == directory_->companyOf(caller)) return true;
    qInfo("%s refused (1006): outside the caller's company", req.path.c_str());
    fail(res, req, Envelope::NotFound);
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
                return fail(res, req, Envelope::BadParameter);
            }
            return login(req, res);
        }
        return reply(res, PageRenderer::checkIn(), kHtml);
    }
    if (path == QLatin1String("/rest/auth/client.htm")) return token(req, res);
    if (path == QLatin1String("/work/mobileUserInfo.htm")) {
        if (m == QLatin1String("findAllUserAndDept")) return organisation(req, res);
        if (m == QLatin1String("findSomeOne")) return someColleagues(req, res);
        return fail(res, req, Envelope::BadParameter);
    }
    if (path == QLatin1String("/work/project.htm")) {
        if (m == QLatin1String("myProjectList")) return projectList(req, res);
        if (m == QLatin1String("tasks")) return projectPage(req, res);
        return fail(res, req, Envelope::BadParameter);
    }
    if (path == QLatin1String("/work/gen.htm") && m == QLatin1String("user")) {
        return projectMembers(req, res);
    }
    if (path == QLatin1String("/work/mobileProject.htm")) {
        if (m == QLatin1String("queryProjectById")) return projectById(req, res, "projectId");
        if (m == QLatin1String("projectInfoByOpenimId")) return projectById(req, res, "openimId");
        return fail(res, req, Envelope::BadParameter);
    }
    if (path == QLatin1String("/work/editProj.htm")) return editProject(req, res);
    if (path == QLatin1String("/work/notifies.htm")) return taskReadFlags(req, res);
    if (path == QLatin1String("/work/mobileTopic.htm") && m == QLatin1String("uploadFromPC")) {
        return upload(req, res);
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
    if (path == QLatin1String("/") || path.isEmpty()) {
        // Signed in (the work-platform page of the client): the caller's projects and tasks.
        const qint64 user = sessionUser(req);
        return reply(res, user ? tasks_->home(user) : PageRenderer::home(QString()), kHtml);
    }
    res.status = 404;
    fail(res, req, Envelope::UnknownAddress);
}

void BackendServer::login(const httplib::Request& req, httplib::Response& res) {
    const QString userName = param(req, "username");
    const QString password = param(req, "password");
    const QString client = param(req, "client");
    qint64 clientKind = 0;
    if (userName.isEmpty() || userName.size() > 100 || password.isEmpty() ||
        password.size() > 200 || !parseId(client, &clientKind)) {
        return fail(res, req, Envelope::BadParameter);
    }
    if (throttle_->waitMs(userName) > 0) return fail(res, req, Envelope::TooManyAttempts);

    qint64 userId = 0;
    QString stored;
    const bool known = directory_->findAccount(userName, &userId, &stored);
    const bool verified = PasswordHasher::verify(password, known ? stored : dummyHash_) && known;
    if (!verified) {
        throttle_->failed(userName);
        return fail(res, req, Envelope::WrongCredentials);
    }
    throttle_->succeeded(userName);

    QJsonObject user = directory_->loginUser(userId);
    if (user.isEmpty()) return fail(res, req, Envelope::InternalError);
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
    if (user == 0) return fail(res, req, Envelope::NotSignedIn);
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
        return fail(res, req, Envelope::BadParameter);
    }
    if (!sameCompany(req, res, caller, directory_->companyOf(userId))) return;
    if (companyId != directory_->companyOf(caller)) {
        qInfo("%s refused (1004): another company's organisation", req.path.c_str());
        return fail(res, req, Envelope::Forbidden);
    }
    const QByteArray token = caller == userId ? sessions_->tokenOf(userId) : QByteArray();
    // The client's network stack accepts gzip; 100,000 colleagues shrink about sixfold.
    if (req.get_header_value("Accept-Encoding").find("gzip") != std::string::npos) {
        const QByteArray body =
            orgCache_->gzipEnvelope(companyId, userId, token, Envelope::successPrefix(),
                                    Envelope::successSuffix(param(req, "client")));
        if (body.isEmpty()) return fail(res, req, Envelope::NotFound);
        res.set_header("Content-Encoding", "gzip");
        return reply(res, body);
    }
    const QByteArray results = orgCache_->results(companyId, userId, token);
    if (results.isEmpty()) return fail(res, req, Envelope::NotFound);
    reply(res, Envelope::successRaw(results, param(req, "client")));
}

void BackendServer::someColleagues(const httplib::Request& req, httplib::Response& res) {
    const qint64 caller = signedIn(req, res);
    if (caller == 0) return;
    QList<qint64> ids;
    if (!parseIdList(param(req, "manyUserIds"), &ids))
        return fail(res, req, Envelope::BadParameter);
    // Colleagues of other companies are left out like unknown ids.
    ok(res, req, directory_->colleagues(directory_->inCompany(directory_->companyOf(caller), ids)));
}

void BackendServer::projectList(const httplib::Request& req, httplib::Response& res) {
    const qint64 viewer = signedIn(req, res);
    if (viewer == 0) return;
    qint64 userId = viewer;
    const QString userText = param(req, "userId");
    if (!userText.isEmpty() && !parseId(userText, &userId))
        return fail(res, req, Envelope::BadParameter);
    // One's own list only: which projects a colleague is in is theirs to tell.
    if (userId != viewer) {
        qInfo("%s refused (1004): another colleague's project list", req.path.c_str());
        return fail(res, req, Envelope::Forbidden);
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
        return fail(res, req, Envelope::BadParameter);
    if (directory_->projectOwner(projectId) == 0) return fail(res, req, Envelope::NotFound);
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
    if (!parseId(param(req, idParam), &projectId)) return fail(res, req, Envelope::BadParameter);
    QJsonObject project = directory_->project(projectId);
    if (project.isEmpty()) return fail(res, req, Envelope::NotFound);
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
        return fail(res, req, Envelope::BadParameter);
    // Read flags are the caller's own: nobody reads or sets them for someone else.
    if (userId != caller) {
        qInfo("%s refused (1004): another colleague's read flags", req.path.c_str());
        return fail(res, req, Envelope::Forbidden);
    }
    const qint64 company = directory_->companyOf(caller);
    if (m == QLatin1String("getTaskReadFlag")) {
        QList<qint64> ids;
        if (!parseIdList(param(req, "taskIds"), &ids))
            return fail(res, req, Envelope::BadParameter);
        // Tasks of other companies are left out like unknown ids.
        QList<qint64> own;
        for (qint64 id : qAsConst(ids)) {
            if (directory_->taskCompany(id) == company) own << id;
        }
        return ok(res, req, directory_->readFlags(userId, own));
    }
    if (m == QLatin1String("setTaskReadFlag")) {
        qint64 taskId = 0;
        if (!parseId(param(req, "taskId"), &taskId)) return fail(res, req, Envelope::BadParameter);
        if (!sameCompany(req, res, caller, directory_->taskCompany(taskId))) return;
        if (!directory_->markTaskRead(taskId, userId)) return fail(res, req, Envelope::NotFound);
        return ok(res, req, directory_->readFlags(userId, {taskId}));
    }
    fail(res, req, Envelope::BadParameter);
}

void BackendServer::upload(const httplib::Request& req, httplib::Response& res) {
    if (req.method != "POST" || !req.is_multipart_form_data() || req.files.empty()) {
        return fail(res, req, Envelope::BadParameter);
    }
    // Always in the caller's own name; a userId field is not trusted.
    const qint64 owner = signedIn(req, res);
    if (owner == 0) return;
    // The first part that carries a file name is the file.
    const httplib::MultipartFormData* file = nullptr;
    for (const auto& part : req.files) {
        if (!part.second.filename.empty()) {
            file = &part.second;
            break;
        }
    }
    if (!file) return fail(res, req, Envelope::BadParameter);
    if (qint64(file->content.size()) > files_->maxBytes())
        return fail(res, req, Envelope::FileTooLarge);
    const QString name = FileStore::sanitizeName(QString::fromStdString(file->filename));
    if (name.isEmpty()) return fail(res, req, Envelope::BadFileName);
    const QString stored =
        files_->store(QByteArray::fromRawData(file->content.data(), int(file->content.size())));
    if (stored.isEmpty()) return fail(res, req, Envelope::InternalError);
    const qint64 id = directory_->addAttachment(owner, name, stored, qint64(file->content.size()));
    if (id == 0) return fail(res, req, Envelope::InternalError);
    ok(res, req,
       QJsonObject{
           {QStringLiteral("id"), QString::number(id)},
           {QStringLiteral("fileName"), name},
           {QStringLiteral("fileSize"), QString::number(file->content.size())},
           {QStringLiteral("url"), publicUrl_ + QStringLiteral("/work/attachment/%1").arg(id)}});
}

void BackendServer::download(const httplib::Request& req, httplib::Response& res,
                             const QString& idText) {
    const qint64 caller = signedIn(req, res);
    if (caller == 0) return;
    qint64 id = 0;
    if (!parseId(idText, &id)) return fail(res, req, Envelope::BadParameter);
    QString name;
    QString stored;
    qint64 size = 0;
    qint64 owner = 0;
    if (!directory_->attachment(id, &name, &stored, &size, &owner))
        return fail(res, req, Envelope::NotFound);
    if (!sameCompany(req, res, caller, directory_->companyOf(owner))) return;
    QFile file(files_->pathOf(stored));
    if (file.fileName().isEmpty() || !file.open(QIODevice::ReadOnly)) {
        return fail(res, req, Envelope::NotFound);
    }
    const QByteArray data = file.readAll();
    res.set_header("Content-Disposition",
                   ("attachment; filename*=UTF-8''" + QUrl::toPercentEncoding(name)).toStdString());
    reply(res, data, "application/octet-stream");
}

void BackendServer::taskPage(const httplib::Request& req, httplib::Response& res) {
    const qint64 caller = signedIn(req, res);
    if (caller == 0) return;
    tasks_->handle(req, res, caller, sessionIdOf(req));
}

void BackendServer::projectPage(const httplib::Request& req, httplib::Response& res) {
    const qint64 caller = signedIn(req, res);
    if (caller == 0) return;
    qint64 projectId = 0;
    if (!parseId(param(req, "projectId"), &projectId))
        return fail(res, req, Envelope::BadParameter);
    const QJsonObject project = directory_->project(projectId);
    if (project.isEmpty()) return fail(res, req, Envelope::NotFound);
    if (!sameCompany(req, res, caller, directory_->projectCompany(projectId))) return;
    reply(res, PageRenderer::projectTasks(project, directory_->tasksOf(projectId)), kHtml);
}

void BackendServer::goalsPage(const httplib::Request& req, httplib::Response& res) {
    const qint64 caller = signedIn(req, res);
    if (caller == 0) return;
    qint64 projectId = 0;
    if (!parseId(param(req, "projectId"), &projectId))
        return fail(res, req, Envelope::BadParameter);
    const QJsonObject project = directory_->project(projectId);
    if (project.isEmpty()) return fail(res, req, Envelope::NotFound);
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
        return reply(res, Envelope::failure(Envelope::NotFound));
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
        return reply(res, Envelope::failure(Envelope::NotFound));
    }
    auto shared = std::make_shared<QFile>(file.fileName());
    if (!shared->open(QIODevice::ReadOnly)) {
        res.status = 500;
        return reply(res, Envelope::failure(Envelope::NotFound));
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
