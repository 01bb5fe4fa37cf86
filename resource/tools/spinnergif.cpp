// quelix-spinnergif <out.gif> <size> [--dots]
// Draws the "loading" animation shown while a picture is on its way: eight dots around a
// circle, one frame per step, written as a looping GIF. With --dots it draws the log-in
// window's waiting strip instead: a row of dots with a bright one running across, as wide
// as <size> and a quarter as high. Qt reads GIF but cannot write it,
// so the file is written here: an 8-colour palette and LZW codes of a fixed width (a
// clear code every few pixels keeps the code table from growing), which every reader
// accepts.
#include <QColor>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QtMath>

#include <cstdio>

namespace {

constexpr int kFrames = 8;
constexpr int kColours = 8;  // palette entry 0 is transparent

class BitWriter {
public:
    void put(int code, int width) {
        acc_ |= quint32(code) << bits_;
        bits_ += width;
        while (bits_ >= 8) {
            bytes_.append(char(acc_ & 0xff));
            acc_ >>= 8;
            bits_ -= 8;
        }
    }
    QByteArray finish() {
        if (bits_ > 0) bytes_.append(char(acc_ & 0xff));
        return bytes_;
    }

private:
    QByteArray bytes_;
    quint32 acc_ = 0;
    int bits_ = 0;
};

void le16(QByteArray& out, int v) {
    out.append(char(v & 0xff));
    out.append(char((v >> 8) & 0xff));
}

QByteArray frameData(const QVector<uchar>& pixels) {
    const int minCode = 3;
    const int clear = 1 << minCode, end = clear + 1, width = minCode + 1;
    BitWriter w;
    for (int i = 0; i < pixels.size(); ++i) {
        if (i % 4 == 0) w.put(clear, width);
        w.put(pixels[i], width);
    }
    w.put(end, width);
    const QByteArray lzw = w.finish();
    QByteArray out;
    out.append(char(minCode));
    for (int i = 0; i < lzw.size(); i += 255) {
        const QByteArray block = lzw.mid(i, 255);
        out.append(char(block.size()));
        out.append(block);
    }
    out.append(char(0));
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    const bool dots = argc == 4 && QByteArray(argv[3]) == "--dots";
    if (argc != 3 && !dots) {
        std::fprintf(stderr, "usage: quelix-spinnergif out.gif size [--dots]\n");
        return 2;
    }
    const int size = QString::fromLocal8Bit(argv[2]).toInt();
    const int width = size, height = dots ? qMax(4, size / 4) : size;
    // Shades from the newest dot (dark blue) to the oldest (pale).
    const QColor shades[kColours - 1] = {QColor(0x1f, 0x6f, 0xd1), QColor(0x46, 0x87, 0xd9),
                                         QColor(0x6d, 0x9f, 0xe1), QColor(0x94, 0xb7, 0xe8),
                                         QColor(0xb0, 0xc8, 0xee), QColor(0xc8, 0xd8, 0xf2),
                                         QColor(0xdc, 0xe6, 0xf6)};
    QByteArray gif("GIF89a");
    le16(gif, width);
    le16(gif, height);
    gif.append(char(0xf0 | 0x02));  // global table of 2^(2+1) = 8 colours
    gif.append(char(0));
    gif.append(char(0));
    gif.append("\xff\xff\xff", 3);
    for (const QColor& c : shades) {
        gif.append(char(c.red()));
        gif.append(char(c.green()));
        gif.append(char(c.blue()));
    }
    gif.append("\x21\xff\x0bNETSCAPE2.0\x03\x01\x00\x00\x00", 19);  // loop for ever

    const double r = size * 0.36, dot = qMax(1.5, size * 0.09);
    for (int f = 0; f < kFrames; ++f) {
        QImage image(width, height, QImage::Format_RGB32);
        image.fill(Qt::black);
        if (dots) {
            // Eight dots in a row; the bright one runs left to right and leaves a fading tail.
            QPainter p(&image);
            p.setRenderHint(QPainter::Antialiasing, false);
            const double step = width / double(kFrames);
            const double radius = qMax(1.5, qMin(step * 0.3, height * 0.4));
            for (int d = 0; d < kFrames; ++d) {
                const int age = (f - d + kFrames) % kFrames;
                const int index = qMin(age, kColours - 2) + 1;
                p.setPen(Qt::NoPen);
                p.setBrush(QColor(index, index, index));
                p.drawEllipse(QPointF(step * (d + 0.5), height / 2.0), radius, radius);
            }
        } else {
            QPainter p(&image);
            for (int d = 0; d < kFrames; ++d) {
                const int age = (f - d + kFrames) % kFrames;
                const int index = qMin(age, kColours - 2) + 1;
                const double a = 2 * M_PI * d / kFrames - M_PI / 2;
                p.setPen(Qt::NoPen);
                p.setBrush(QColor(index, index, index));  // palette index, read back below
                p.drawEllipse(QPointF(size / 2.0 + r * qCos(a), size / 2.0 + r * qSin(a)), dot,
                              dot);
            }
        }
        QVector<uchar> pixels(width * height);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                pixels[y * width + x] = uchar(qMin(kColours - 1, qRed(image.pixel(x, y))));
        // Graphic control: 100 ms a frame, entry 0 transparent, restore to background.
        gif.append("\x21\xf9\x04", 3);
        gif.append(char(0x09));
        le16(gif, 10);
        gif.append(char(0));
        gif.append(char(0));
        gif.append(char(0x2c));
        le16(gif, 0);
        le16(gif, 0);
        le16(gif, width);
        le16(gif, height);
        gif.append(char(0));
        gif.append(frameData(pixels));
    }
    gif.append(char(0x3b));
    QFile out(QString::fromLocal8Bit(argv[1]));
    if (!out.open(QIODevice::WriteOnly) || out.write(gif) != gif.size()) {
        std::fprintf(stderr, "cannot write %s\n", argv[1]);
        return 1;
    }
    return 0;
}
