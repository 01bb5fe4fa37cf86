// Build tool: draws every emoticon of the catalogue from the system's colour emoji font
// into OUT_DIR/<name>.png and writes OUT_DIR/emotion.qrc listing them.
#include <QDir>
#include <QFile>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QTextStream>
#include <cstdio>

#include "emotion/emotion_table.h"

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s EMOJI_FONT OUT_DIR\n", argv[0]);
        return 2;
    }
    const int font = QFontDatabase::addApplicationFont(QString::fromLocal8Bit(argv[1]));
    const QStringList families = QFontDatabase::applicationFontFamilies(font);
    if (families.isEmpty()) {
        std::fprintf(stderr, "cannot load font %s\n", argv[1]);
        return 1;
    }
    QDir out(QString::fromLocal8Bit(argv[2]));
    out.mkpath(QStringLiteral("."));
    QFile qrc(out.filePath(QStringLiteral("emotion.qrc")));
    if (!qrc.open(QIODevice::WriteOnly | QIODevice::Truncate)) return 1;
    QTextStream list(&qrc);
    list << "<RCC>\n<qresource prefix=\"/openim/emotion\">\n";
    constexpr int kSize = 48;
    for (const emotion_table::Row& row : emotion_table::kRows) {
        QImage image(kSize, kSize, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        QFont f(families.first());
        f.setPixelSize(kSize * 3 / 4);
        painter.setFont(f);
        painter.drawText(image.rect(), Qt::AlignCenter, QString::fromUcs4(&row.emoji, 1));
        painter.end();
        const QString file = QString::fromLatin1(row.name) + QStringLiteral(".png");
        if (!image.save(out.filePath(file))) return 1;
        list << "  <file>" << file << "</file>\n";
    }
    list << "</qresource>\n</RCC>\n";
    return 0;
}
