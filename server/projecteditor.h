#pragma once

#include "noticeoutbox.h"

#include <QJsonObject>
#include <QList>

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

class Database;
class Directory;
class RoomKeeper;
class SessionStore;

// The project editing address (/work/editProj.htm): dissolving and leaving as the client
// sends them, and creating projects, adding members and asking whether a project's room is
// ready, for the pages, scripts and tests that manage projects. Every committed change is
// handed to the room keeper, which applies it to the XMPP server.
class ProjectEditor {
public:
    // `rooms` may be null: then no rooms are kept (nor notices sent) and roomState says so.
    ProjectEditor(Database* db, Directory* directory, SessionStore* sessions, RoomKeeper* rooms);

    // `caller` is the signed-in user of the request, 0 when none.
    void handle(const httplib::Request& req, httplib::Response& res, qint64 caller);

    static constexpr int kMaxTitleLength = 100;
    static constexpr int kMaxOwnedProjects = 200;
    static constexpr int kMaxMembers = 1000;
    // Members are told about each colleague added only up to this many notices per change;
    // beyond it only the added colleagues are told (the others see them in the room).
    static constexpr int kMaxNoticesPerChange = 2000;

private:
    void dissolve(const httplib::Request& req, httplib::Response& res, qint64 projectId,
                  qint64 caller);
    void removeMember(const httplib::Request& req, httplib::Response& res, qint64 projectId,
                      qint64 caller);
    void create(const httplib::Request& req, httplib::Response& res, qint64 caller);
    void addMembers(const httplib::Request& req, httplib::Response& res, qint64 projectId,
                    qint64 caller);
    void roomState(const httplib::Request& req, httplib::Response& res, qint64 projectId,
                   qint64 caller);

    // The project record with the owner's sign for the owner, and its room's address.
    QJsonObject record(qint64 projectId, qint64 viewer) const;
    void changed(qint64 projectId);
    // Queues the membership notices of a change: `event` about each of `users`, to each of
    // `recipients`, or to each user itself when `recipients` is empty.
    void notify(qint64 projectId, const QString& event, const QList<qint64>& users,
                const QList<qint64>& recipients, const QString& title = QString());
    QList<qint64> memberIds(qint64 projectId) const;

    Directory* directory_;
    NoticeOutbox notices_;
    SessionStore* sessions_;
    RoomKeeper* rooms_;
};
