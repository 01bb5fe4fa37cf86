#pragma once

#include <QByteArray>
#include <QVector>

// Builds one gzip stream from pieces compressed separately. Every piece but the last ends on
// a full flush (byte-aligned, no reference to earlier data), so a cached piece can be reused
// next to freshly compressed ones and only the parts that differ per request are compressed
// again. The checksum of the whole is combined from the pieces' own.
class GzipPieces {
public:
    struct Piece {
        QByteArray deflated;
        quint32 crc = 0;
        qint64 size = 0;
    };

    static Piece compress(const char* data, qint64 size, bool last, int level = 6);
    static Piece compress(const QByteArray& data, bool last, int level = 6) {
        return compress(data.constData(), data.size(), last, level);
    }
    // The pieces in order; the last must have been compressed with `last` set.
    static QByteArray join(const QVector<const Piece*>& pieces);
    // What join() puts around the pieces, for sending them without joining.
    static QByteArray header();
    static QByteArray trailer(const QVector<const Piece*>& pieces);
};
