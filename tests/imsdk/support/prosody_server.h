#pragma once

#include <QString>
#include <QTemporaryDir>
#include <memory>

// A private Prosody for one test or benchmark, run through devstack/prosody-dev in a
// folder of its own; stopped (by pid) when the object goes away.
class ProsodyServer {
public:
    ProsodyServer();
    ~ProsodyServer();

    bool start();
    // Stops the server but keeps its data and ports, so that start() brings it back.
    bool stopKeepingData();
    bool registerUser(const QString& user, const QString& secret);
    // The server itself sends `user` a headline message.
    bool announce(const QString& user, const QString& text);

    QString host() const { return host_; }
    quint16 port() const { return port_; }
    QString domain() const { return domain_; }
    // The back end's administrative account, an admin of this server (it keeps the rooms).
    QString adminJid() const { return adminJid_; }
    QString adminSecret() const { return adminSecret_; }
    // Where the server keeps its accounts (the back end writes IM accounts there).
    QString dataDir() const { return dir_ + QStringLiteral("/data"); }
    QString lastError() const { return error_; }

private:
    bool run(const QStringList& args, QString* out = nullptr);

    std::unique_ptr<QTemporaryDir> root_;
    QString dir_;
    QString host_;
    quint16 port_ = 0;
    QString domain_;
    QString adminJid_;
    QString adminSecret_;
    QString error_;
    bool running_ = false;
};
