#include "requestaccess.h"

#include "apihelpers.h"
#include "database.h"
#include "directory.h"
#include "sessionstore.h"

#include <httplib.h>

using api::fail;
using api::param;

const char RequestAccess::kSessionCookie[] = "QXSESSION";

RequestAccess::RequestAccess(SessionStore* sessions, const Directory* directory)
    : sessions_(sessions), directory_(directory) {}

QByteArray RequestAccess::sessionIdOf(const httplib::Request& req) {
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

qint64 RequestAccess::sessionUser(const httplib::Request& req) const {
    const QByteArray id = sessionIdOf(req);
    return id.isEmpty() ? 0 : sessions_->userOf(id);
}

qint64 RequestAccess::signedIn(const httplib::Request& req, httplib::Response& res) const {
    const qint64 user = sessionUser(req);
    if (user == 0) {
        qInfo("%s refused (1003): no session", req.path.c_str());
        fail(res, req, ReplyEnvelope::NotSignedIn);
    }
    return user;
}

bool RequestAccess::sameCompany(const httplib::Request& req, httplib::Response& res, qint64 caller,
                                qint64 company) const {
    if (company != 0 && company == directory_->companyOf(caller)) return true;
    if (Database::requestFailed()) return false;  // not a refusal: answered as a failure
    qInfo("%s refused (1006): outside the caller's company", req.path.c_str());
    fail(res, req, ReplyEnvelope::NotFound);
    return false;
}
