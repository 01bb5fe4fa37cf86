#pragma once

#include <QByteArray>
#include <QtGlobal>

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

class Directory;
class SessionStore;

// Who is asking, and whether what they ask about is theirs to see: the session of a
// request (the QXSESSION cookie or a sessionId parameter), and the company rule. Data of
// other companies is as unknown as a missing id.
class RequestAccess {
public:
    static const char kSessionCookie[];

    RequestAccess(SessionStore* sessions, const Directory* directory);

    // The session id the request carries (parameter first, then cookie); empty when none.
    static QByteArray sessionIdOf(const httplib::Request& req);
    // The signed-in user of the request; 0 when none.
    qint64 sessionUser(const httplib::Request& req) const;
    // The same; 0 after answering "not signed in" (one log line).
    qint64 signedIn(const httplib::Request& req, httplib::Response& res) const;
    // Answers "not found" (one log line) unless `company` is the caller's.
    bool sameCompany(const httplib::Request& req, httplib::Response& res, qint64 caller,
                     qint64 company) const;

private:
    SessionStore* sessions_;
    const Directory* directory_;
};
