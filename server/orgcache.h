#pragma once

#include <QByteArray>
#include <QHash>
#include <QMutex>
#include <QSharedPointer>
#include <QVector>

#include <memory>

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

    void invalidate();

    // A whole reply as parts to send in order. The parts share the cached bytes: per request
    // only the caller's own piece is new, so concurrent requests do not each hold a copy of
    // a reply that runs to tens of megabytes.
    struct Parts {
        QVector<QByteArray> parts;
        qint64 size = 0;
        std::shared_ptr<const void> keep;  // keeps the shared bytes alive while they are sent
        bool isEmpty() const { return parts.isEmpty(); }
    };
    // The envelope (prefix + results + suffix), gzip-compressed or plain. Empty when the
    // company does not exist.
    Parts envelopeParts(qint64 companyId, qint64 userId, const QByteArray& token,
                        const QByteArray& prefix, const QByteArray& suffix, bool gzip);

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
    static void compressPieces(const Entry& e);

    Database* db_;
    const Directory* directory_;
    QMutex mutex_;
    QHash<qint64, QSharedPointer<const Entry>> entries_;
};
