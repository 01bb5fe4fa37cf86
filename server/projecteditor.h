#pragma once

#include <QJsonObject>
#include <QList>

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

class Directory;
class RoomKeeper;
class SessionStore;

// The project editing address (/work/editProj.htm): dissolving and leaving as the client
// sends them, and creating projects, adding members and asking whether a project's room is
// ready, for the pages, scripts and tests that manage projects. Every committed change is
// handed to the room keeper, which applies it to the XMPP server.
class ProjectEditor {
public:
    // `rooms` may be null: then no rooms are kept and roomState says so.
    ProjectEditor(Directory* directory, SessionStore* sessions, RoomKeeper* rooms);

    // `caller` is the signed-in user of the request, 0 when none.
    void handle(const httplib::Request& req, httplib::Response& res, qint64 caller);

    static constexpr int kMaxTitleLength = 100;
    static constexpr int kMaxOwnedProjects = 200;
    static constexpr int kMaxMembers = 1000;

private:
    void dissolve(const httplib::Request& req, httplib::Response& res, qint64 projectId);
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

    Directory* directory_;
    SessionStore* sessions_;
    RoomKeeper* rooms_;
};
