#include "apihelpers.h"

#include <httplib.h>

#include <QFile>
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

void replyParts(httplib::Response& res, const QVector<QByteArray>& parts, qint64 size,
                const char* type, std::shared_ptr<const void> keep) {
    res.set_content_provider(
        size_t(size), type, [parts, keep](size_t offset, size_t length, httplib::DataSink& sink) {
            qint64 at = qint64(offset);
            for (const QByteArray& part : parts) {
                if (at >= part.size()) {
                    at -= part.size();
                    continue;
                }
                const qint64 n =
                    qMin<qint64>(qMin<qint64>(part.size() - at, qint64(length)), 256 * 1024);
                return sink.write(part.constData() + at, size_t(n));
            }
            return false;
        });
}

bool replyFile(httplib::Response& res, const QString& path, const char* type) {
    auto file = std::make_shared<QFile>(path);
    if (!file->open(QIODevice::ReadOnly)) return false;
    res.set_content_provider(
        size_t(file->size()), type, [file](size_t offset, size_t length, httplib::DataSink& sink) {
            if (!file->seek(qint64(offset))) return false;
            const QByteArray chunk = file->read(qint64(qMin<size_t>(length, 256 * 1024)));
            if (chunk.isEmpty()) return false;
            return sink.write(chunk.constData(), size_t(chunk.size()));
        });
    return true;
}

void ok(httplib::Response& res, const httplib::Request& req, const QJsonValue& results) {
    reply(res, ReplyEnvelope::success(results, param(req, "client")));
}

}  // namespace api
