#include "gzippieces.h"

#include <zlib.h>

GzipPieces::Piece GzipPieces::compress(const char* data, qint64 size, bool last, int level) {
    Piece piece;
    piece.size = size;
    piece.crc = quint32(crc32_z(0L, reinterpret_cast<const Bytef*>(data), size_t(size)));
    z_stream zs{};
    // Raw deflate: the gzip header and trailer are written once, by join().
    if (deflateInit2(&zs, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK) return piece;
    piece.deflated.resize(int(deflateBound(&zs, uLong(size)) + 64));
    zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
    zs.avail_in = uInt(size);
    int written = 0;
    for (;;) {
        zs.next_out = reinterpret_cast<Bytef*>(piece.deflated.data() + written);
        zs.avail_out = uInt(piece.deflated.size() - written);
        const int rc = deflate(&zs, last ? Z_FINISH : Z_FULL_FLUSH);
        written = int(zs.total_out);
        const bool done = last ? rc == Z_STREAM_END : zs.avail_in == 0 && zs.avail_out > 0;
        if (done || (rc != Z_OK && rc != Z_BUF_ERROR)) break;
        piece.deflated.resize(piece.deflated.size() * 2);
    }
    deflateEnd(&zs);
    piece.deflated.resize(written);
    return piece;
}

QByteArray GzipPieces::header() {
    static const char bytes[10] = {'\x1f', '\x8b', 8, 0, 0, 0, 0, 0, 0, '\x03'};
    return QByteArray(bytes, 10);
}

QByteArray GzipPieces::trailer(const QVector<const Piece*>& pieces) {
    uLong crc = crc32(0L, Z_NULL, 0);
    quint64 size = 0;
    for (const Piece* p : pieces) {
        crc = crc32_combine(crc, p->crc, z_off_t(p->size));
        size += quint64(p->size);
    }
    QByteArray out;
    for (int i = 0; i < 4; ++i) out.append(char((crc >> (8 * i)) & 0xff));
    for (int i = 0; i < 4; ++i) out.append(char((size >> (8 * i)) & 0xff));
    return out;
}

QByteArray GzipPieces::join(const QVector<const Piece*>& pieces) {
    qint64 total = 10 + 8;
    for (const Piece* p : pieces) total += p->deflated.size();
    QByteArray out;
    out.reserve(int(total));
    out.append(header());
    for (const Piece* p : pieces) out.append(p->deflated);
    out.append(trailer(pieces));
    return out;
}
