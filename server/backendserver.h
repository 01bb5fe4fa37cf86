#pragma once

#include <QByteArray>
#include <QString>

#include <memory>
#include <mutex>
#include <thread>

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

class AttachmentHandler;
class Database;
class Directory;
class FileStore;
class GatedServer;
class ImProvisioner;
class OriginCheck;
class LoginThrottle;
class OrgCache;
class PageHandler;
class ProjectEditor;
class RequestAccess;
class RoomKeeper;
class SessionStore;
class TaskEditor;
class UpdatePublisher;

// The HTTP service: every address of the client's URL table, the pages it opens, the update
// description, avatars and attachments. Requests are answered on a pool of threads; each
// thread has its own database connection. Connections wait at a gate (GatedServer) until a
// whole request has arrived, so slow or idle peers never hold a worker.
class BackendServer {
public:
    struct Options {
        QString publicUrl;  // base of the links we hand out; empty: http://<host>:<port>
        // One host, or a cluster's nodes as "host[:port],host[:port]"; imPort for hosts
        // without a port of their own.
        QString imHost = QStringLiteral("127.0.0.1");
        int imPort = 5222;
        QString imDomain = QStringLiteral("localhost");
        QString imAuthority;  // the node of the back end's own IM account; empty: none
        QString clientVersion = QStringLiteral("1.1.9.0");
        QString frameworkVersion = QStringLiteral("5.15.8");
        // Published client packages and their release description ("release.ini"); empty:
        // the description names the versions above and no packages are served.
        QString updateDir;
        QString filesDir;  // attachments; required
        qint64 uploadLimit = 20 * 1024 * 1024;
        int threads = 16;  // workers; each holds one database connection
        int maxConnections = 900;
        int maxConnectionsPerAddress = 128;
        int requestHeadTimeoutMs = 10000;
        int sessionLifetimeSeconds = 2 * 60 * 60;
        int freeLoginAttempts = 5;
        int firstLoginPauseMs = 1000;
        // HTTPS: the certificate (PEM, its chain after it) and its key; empty: plain HTTP.
        QString tlsCert;
        QString tlsKey;
    };

    BackendServer(Database* db, const Options& options);
    ~BackendServer();
    BackendServer(const BackendServer&) = delete;
    BackendServer& operator=(const BackendServer&) = delete;

    // Binds (port 0: any free port) and starts answering on a thread of its own.
    bool start(const QString& host, int port);
    void stop();
    int port() const { return port_; }
    QString publicUrl() const { return publicUrl_; }

    // The client's URL table ("UrlText.ini") for a back end at `base`: the fifteen Url keys.
    static QByteArray urlTable(const QString& base);

    // Builds the cached organisation replies (plain and compressed) of every company on a
    // thread of its own, so that the first colleague to sign in does not wait for them.
    void warmUp();

    // Drops the cached organisation replies, after the directory changed underneath.
    void directoryChanged();

    // Project changes made through the addresses are handed to `rooms` (may be null: no
    // XMPP rooms are kept). Set before start(); the keeper must outlive the server.
    void setRoomKeeper(RoomKeeper* rooms) { rooms_ = rooms; }
    // Accounts made while the server runs are provisioned through `provisioner` (may be
    // null: none is). Set before start(); it must outlive the server.
    void setProvisioner(ImProvisioner* provisioner) { provisioner_ = provisioner; }

private:
    void accountMade(qint64 userId);
    void dispatch(const httplib::Request& req, httplib::Response& res);
    void login(const httplib::Request& req, httplib::Response& res);
    void token(const httplib::Request& req, httplib::Response& res);
    void organisation(const httplib::Request& req, httplib::Response& res);
    void someColleagues(const httplib::Request& req, httplib::Response& res);
    void projectList(const httplib::Request& req, httplib::Response& res);
    void projectMembers(const httplib::Request& req, httplib::Response& res);
    void projectById(const httplib::Request& req, httplib::Response& res, const char* idParam);
    void editProject(const httplib::Request& req, httplib::Response& res);
    void taskReadFlags(const httplib::Request& req, httplib::Response& res);
    // Runs a handler and turns any database failure during it into an honest 1500.
    template <typename Handler>
    void guarded(const httplib::Request& req, httplib::Response& res, Handler&& handler);

    qint64 uploadBodyCap() const;
    static bool isUpload(const httplib::Request& req);
    // Sets the request's body cap; refuses (and answers) a body that cannot be accepted
    // before any of it is read.
    bool admitOrigin(const httplib::Request& req, httplib::Response& res);
    bool admitBody(const httplib::Request& req, httplib::Response& res);

    QString projectSign(qint64 projectId, qint64 forUser);

    Database* db_;
    Options options_;
    QString publicUrl_;
    int port_ = 0;
    std::unique_ptr<GatedServer> http_;
    std::unique_ptr<Directory> directory_;
    std::unique_ptr<OrgCache> orgCache_;
    std::unique_ptr<SessionStore> sessions_;
    std::unique_ptr<LoginThrottle> throttle_;
    std::unique_ptr<FileStore> files_;
    std::unique_ptr<ProjectEditor> projects_;
    std::unique_ptr<RequestAccess> access_;
    std::unique_ptr<TaskEditor> tasks_;  // before the pages, which use it
    std::unique_ptr<PageHandler> pages_;
    std::unique_ptr<AttachmentHandler> attachments_;
    std::unique_ptr<UpdatePublisher> updates_;
    std::unique_ptr<OriginCheck> origins_;
    RoomKeeper* rooms_ = nullptr;
    ImProvisioner* provisioner_ = nullptr;
    std::mutex provisionLock_;
    QString dummyHash_;  // verified against for unknown accounts, so timing tells nothing
    std::thread warmUp_;
};
