#include "avatarpainter.h"

#include <QBuffer>
#include <QColor>
#include <QImage>

QByteArray AvatarPainter::png(qint64 userId) {
    // SplitMix64: a well-mixed 64-bit value per id, the same on every run.
    quint64 z = quint64(userId) + 0x9e3779b97f4a7c15ULL;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    z ^= z >> 31;

    const int hue = int(z % 360);
    const QColor fg = QColor::fromHsv(hue, 170, 200);
    const QColor bg = QColor::fromHsv(hue, 30, 245);
    QImage image(kSize, kSize, QImage::Format_RGB32);
    image.fill(bg);

    constexpr int cells = 5;
    constexpr int margin = 15;
    constexpr int cell = (kSize - 2 * margin) / cells;
    const QRgb ink = fg.rgb();
    for (int row = 0; row < cells; ++row) {
        for (int col = 0; col < (cells + 1) / 2; ++col) {
            if (!((z >> (8 + row * 3 + col)) & 1)) continue;
            for (int mirror : {col, cells - 1 - col}) {
                for (int y = margin + row * cell; y < margin + (row + 1) * cell; ++y) {
                    QRgb* line = reinterpret_cast<QRgb*>(image.scanLine(y));
                    for (int x = margin + mirror * cell; x < margin + (mirror + 1) * cell; ++x) {
                        line[x] = ink;
                    }
                }
            }
        }
    }
    QByteArray out;
    QBuffer buffer(&out);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return out;
}
