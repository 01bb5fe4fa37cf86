#pragma once

#include <QByteArray>
#include <QHash>
#include <QMutex>
#include <QSharedPointer>

class Database;
class Directory;

// The organisation reply is the largest the back end sends (tens of megabytes for 100,000
// colleagues) and changes rarely, so it is serialised once per company and kept. Only the
// signed-in user's own entry differs between callers (its "md5Sign"); the cache remembers
// where each entry's token goes and splices it in per request.
class OrgCache {
public:
    OrgCache(Database* db, const Directory* directory);

    // The "results" payload for the company, with `token` in `userId`'s entry ("" elsewhere).
    // Empty when the company does not exist.
    QByteArray results(qint64 companyId, qint64 userId, const QByteArray& token);
    void invalidate();

private:
    struct Entry {
        QByteArray body;
        QHash<qint64, int> signOffset;  // where the entry's empty token value sits
    };
    QSharedPointer<const Entry> build(qint64 companyId) const;

    Database* db_;
    const Directory* directory_;
    QMutex mutex_;
    QHash<qint64, QSharedPointer<const Entry>> entries_;
};
