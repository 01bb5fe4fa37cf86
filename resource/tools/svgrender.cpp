// Build-time tool: renders one of our SVG drawings to a PNG or ICO of the given size.
//   quelix-svgrender <in.svg> <out.png|out.ico> <width> <height> [--gray] [--tint #rrggbb]
// --gray makes the off-line variant of an avatar; --tint repaints every drawn pixel in
// one colour (keeping its alpha), so the normal and selected states of a button come
// from one drawing.
#include <QColor>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>
#include <cstdio>

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 5) {
        std::fprintf(stderr,
                     "usage: quelix-svgrender in.svg out.(png|ico) width height [--gray] [--tint "
                     "#rrggbb]\n");
        return 2;
    }
    QSvgRenderer svg(args.at(1));
    if (!svg.isValid()) {
        std::fprintf(stderr, "cannot read %s\n", qPrintable(args.at(1)));
        return 1;
    }
    const int w = args.at(3).toInt();
    const int h = args.at(4).toInt();
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    {
        QPainter p(&image);
        p.setRenderHint(QPainter::Antialiasing);
        svg.render(&p);
    }
    for (int i = 5; i < args.size(); ++i) {
        if (args.at(i) == QLatin1String("--gray")) {
            image = image.convertToFormat(QImage::Format_ARGB32);
            for (int y = 0; y < h; ++y) {
                auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
                for (int x = 0; x < w; ++x) {
                    const int g = qGray(line[x]);
                    line[x] = qRgba(g, g, g, qAlpha(line[x]));
                }
            }
        } else if (args.at(i) == QLatin1String("--tint") && i + 1 < args.size()) {
            const QColor tint(args.at(++i));
            QPainter p(&image);
            p.setCompositionMode(QPainter::CompositionMode_SourceIn);
            p.fillRect(image.rect(), tint);
        }
    }
    QDir().mkpath(QFileInfo(args.at(2)).absolutePath());
    const QByteArray format = args.at(2).endsWith(QLatin1String(".ico")) ? "ico" : "png";
    if (!image.save(args.at(2), format.constData())) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(args.at(2)));
        return 1;
    }
    return 0;
}
