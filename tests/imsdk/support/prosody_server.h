#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <memory>

// A private XMPP server for one test or benchmark, run through the dev stack's script in a
// folder of its own; stopped (by pid) when the object goes away. QUELIX_XMPP_SERVER chooses
// the server when the test runs: "prosody" (devstack/prosody-dev, the default) or
// "ejabberd" (devstack/ejabberd-dev); both print the same lines, so tests do not care.
class ProsodyServer {
public:
    ProsodyServer();
    ~ProsodyServer();

    // "prosody" or "ejabberd", from QUELIX_XMPP_SERVER.
    static QString kind();
    static bool isEjabberd() { return kind() == QLatin1String("ejabberd"); }

    // With `plain`, the server offers no TLS at all; otherwise it requires TLS, with a
    // certificate from an authority of the instance's own (caFile()).
    bool start(bool plain = false);
    // ejabberd only: `nodes` nodes joined into one cluster (port() is the first node's).
    bool startCluster(int nodes);
    QList<quint16> nodePorts() const { return nodePorts_; }
    QList<qint64> nodePids() const { return nodePids_; }
    // Stops the server but keeps its data and ports, so that start() brings it back.
    bool stopKeepingData();
    // While stopped: empties every message archive, the accounts' and the rooms', as on a
    // server whose message data was lost or replaced; accounts and rooms stay.
    bool wipeArchives();
    bool registerUser(const QString& user, const QString& secret);
    // The server itself sends `user` a headline message.
    bool announce(const QString& user, const QString& text);
    // Room `room` (its local part) forgets the occupant `nick` without telling anyone, as a
    // room restarted on another node of a cluster does (Prosody only).
    bool forgetOccupant(const QString& room, const QString& nick);

    QString host() const { return host_; }
    quint16 port() const { return port_; }
    QString domain() const { return domain_; }
    // The back end's administrative account, an admin of this server (it keeps the rooms).
    QString adminJid() const { return adminJid_; }
    QString adminSecret() const { return adminSecret_; }
    // Where the server keeps its data (Prosody's accounts, which the back end writes there).
    QString dataDir() const { return dir_ + QStringLiteral("/data"); }
    // The back end's arguments that provision colleagues' accounts on this server: into
    // Prosody's data folder, or through ejabberd's HTTP API, as the admin account (which
    // they name, so the back end keeps the rooms too) with the colleagues' roster group,
    // trusting the instance's authority.
    QStringList provisionArguments() const;
    // The file holding adminSecret(), written by the dev stack's script.
    QString adminSecretFile() const { return dir_ + QStringLiteral("/admin-secret"); }
    // ejabberd's HTTP API and the colleagues' shared roster group (empty on Prosody).
    QString apiUrl() const { return apiUrl_; }
    QString rosterGroup() const { return rosterGroup_; }
    QString lastError() const { return error_; }
    // The instance's certificate authority (empty for a plain server), and the certificate
    // and key it signed for the domain and loopback, which the back end may serve as well.
    QString caFile() const { return caFile_; }
    QString certFile() const { return certFile_; }
    QString keyFile() const { return keyFile_; }

private:
    bool run(const QStringList& args, QString* out = nullptr);
    bool start(bool plain, int nodes);

    QString kind_;  // chosen when made
    std::unique_ptr<QTemporaryDir> root_;
    QString dir_;
    QString host_;
    quint16 port_ = 0;
    QString domain_;
    QString adminJid_;
    QString adminSecret_;
    QString caFile_;
    QString certFile_;
    QString keyFile_;
    QString apiUrl_;
    QString rosterGroup_;
    QString error_;
    bool running_ = false;
    QList<quint16> nodePorts_;
    QList<qint64> nodePids_;
};
