#pragma once

#include "replyenvelope.h"

#include <QByteArray>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QVector>

#include <memory>

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

// What every address handler does with its request and reply: read a field, check an id,
// answer with the envelope. Shared by the server and the handlers kept in files of their own.
namespace api {

// Not "application/json": the HTTP library would then compress every reply on the fly.
extern const char kJson[];
extern const char kHtml[];
constexpr int kMaxIdsPerRequest = 1000;

// The first value wins when a field is repeated; empty when absent.
QString param(const httplib::Request& req, const char* name);
// A positive decimal id of at most 18 digits, nothing else.
bool parseId(const QString& text, qint64* id);
// Comma-separated ids, 1 to kMaxIdsPerRequest of them, duplicates dropped.
bool parseIdList(const QString& text, QList<qint64>* ids);

void reply(httplib::Response& res, const QByteArray& body, const char* type = kJson);
void fail(httplib::Response& res, const httplib::Request& req, ReplyEnvelope::Code code);
void fail(httplib::Response& res, const httplib::Request& req, ReplyEnvelope::Code code,
          const QString& message);
// Sends `parts` one after another as the peer takes them; `keep` stays alive until then.
void replyParts(httplib::Response& res, const QVector<QByteArray>& parts, qint64 size,
                const char* type, std::shared_ptr<const void> keep);
// Streams a file as the peer takes it; false when it cannot be opened.
bool replyFile(httplib::Response& res, const QString& path, const char* type);

void ok(httplib::Response& res, const httplib::Request& req, const QJsonValue& results);

}  // namespace api
