#include "apihelpers.h"

#include <httplib.h>

#include <QStringList>

namespace api {

const char kJson[] = "application/json;charset=UTF-8";
const char kHtml[] = "text/html;charset=UTF-8";

QString param(const httplib::Request& req, const char* name) {
    return req.has_param(name) ? QString::fromStdString(req.get_param_value(name)) : QString();
}

bool parseId(const QString& text, qint64* id) {
    if (text.isEmpty() || text.size() > 18) return false;
    for (const QChar c : text) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9')) return false;
    }
    *id = text.toLongLong();
    return *id > 0;
}

bool parseIdList(const QString& text, QList<qint64>* ids) {
    const QStringList parts = text.split(QLatin1Char(','), Qt::SkipEmptyParts);
    if (parts.isEmpty() || parts.size() > kMaxIdsPerRequest) return false;
    for (const QString& part : parts) {
        qint64 id = 0;
        if (!parseId(part.trimmed(), &id)) return false;
        if (!ids->contains(id)) ids->append(id);
    }
    return true;
}

void reply(httplib::Response& res, const QByteArray& body, const char* type) {
    res.set_content(body.constData(), size_t(body.size()), type);
}

void fail(httplib::Response& res, const httplib::Request& req, ReplyEnvelope::Code code) {
    reply(res, ReplyEnvelope::failure(code, param(req, "client")));
}

void fail(httplib::Response& res, const httplib::Request& req, ReplyEnvelope::Code code,
          const QString& message) {
    reply(res, ReplyEnvelope::failure(code, message, param(req, "client")));
}

void ok(httplib::Response& res, const httplib::Request& req, const QJsonValue& results) {
    reply(res, ReplyEnvelope::success(results, param(req, "client")));
}

}  // namespace api
