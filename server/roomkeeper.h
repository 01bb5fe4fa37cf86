#pragma once

#include "roomqueue.h"

#include <QMutex>
#include <QString>
#include <QThread>

#include <atomic>

class Database;
class RoomWorker;

// Keeps every project's group chat room on the live XMPP server in step with the
// directory, through the back end's own administrative XMPP session and the standard room
// owner/admin operations (so any standard server will do). Handlers report each committed
// change with projectChanged(); it is applied at once while the session is up and kept
// waiting while it is not. At start and after every reconnect every project's room is
// checked against the directory, so nothing is missed while the XMPP server was away.
// Works on a thread of its own; the public calls are thread-safe.
class RoomKeeper {
public:
    struct Settings {
        QString host = QStringLiteral("127.0.0.1");
        int port = 5222;
        QString domain;     // the colleagues' accounts are <user id>@domain
        QString mucDomain;  // empty: conference.<domain>
        QString adminJid;   // an administrator of the XMPP server
        QString adminSecret;
        // The authority behind the XMPP server's certificate (PEM), beside the system's.
        QString caFile;
        int retryMaxMs = 5000;      // longest pause between connection attempts
        int failedRetryMs = 10000;  // a room the server refused is tried again after this
        int replyTimeoutMs = 20000;
        // Every room is checked again this often (0: never), which also undoes what a room
        // owner changed by hand behind the back end's back.
        int recheckMs = 15 * 60 * 1000;
    };

    RoomKeeper(Database* db, const Settings& settings);
    ~RoomKeeper();
    RoomKeeper(const RoomKeeper&) = delete;
    RoomKeeper& operator=(const RoomKeeper&) = delete;

    void start();
    void stop();

    // Call after the change is committed.
    void projectChanged(qint64 projectId);

    // Ready: the room on the server matches the directory (exists with its members, or is
    // destroyed for a dissolved project). Pending: a change waits to be applied.
    RoomQueue::State state(qint64 projectId, QString* error = nullptr) const;
    bool isOnline() const { return online_; }
    QString roomJid(qint64 projectId) const;
    QString mucDomain() const { return settings_.mucDomain; }

private:
    void wake();

    Database* db_;
    Settings settings_;
    RoomQueue queue_;
    QThread thread_;
    QMutex workerMutex_;  // handlers wake the worker while stop() may be taking it away
    RoomWorker* worker_ = nullptr;
    std::atomic<bool> online_{false};
};
