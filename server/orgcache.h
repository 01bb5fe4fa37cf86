#pragma once

#include <QByteArray>
#include <QHash>
#include <QMutex>
#include <QSharedPointer>
#include <QVector>

#include "gzippieces.h"

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
    // The same, as a whole gzip-compressed envelope (prefix + results + suffix). Kept
    // compressed in pieces; per request only the caller's piece and the envelope around
    // it are compressed again. Empty when the company does not exist.
    QByteArray gzipEnvelope(qint64 companyId, qint64 userId, const QByteArray& token,
                            const QByteArray& prefix, const QByteArray& suffix);
    void invalidate();

private:
    struct Entry {
        QByteArray body;
        QHash<qint64, int> signOffset;  // where the entry's empty token value sits
        // Compressed pieces of `body`, built on the first request that accepts gzip.
        mutable QMutex gzipMutex;
        mutable QVector<GzipPieces::Piece> pieces;
        mutable QVector<int> pieceStart;
    };
    QSharedPointer<const Entry> entry(qint64 companyId);
    QSharedPointer<const Entry> build(qint64 companyId) const;

    Database* db_;
    const Directory* directory_;
    QMutex mutex_;
    QHash<qint64, QSharedPointer<const Entry>> entries_;
};
