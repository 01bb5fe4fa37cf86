#include "inputdocumentwalker.h"

#include <QFileInfo>
#include <QImageReader>
#include <QUrl>
#include <QXmlStreamReader>

bool InputDocumentWalker::isPictureSuffix(const QString& path) {
    static const QList<QByteArray> formats = QImageReader::supportedImageFormats();
    const QByteArray suffix = QFileInfo(path).suffix().toUtf8();
    return !suffix.isEmpty() && formats.contains(suffix);
}

QList<InputDocumentWalker::Part> InputDocumentWalker::walk(
    const QString& html, const QHash<QString, QString>& pictureToCode) {
    QList<Part> parts;
    QString pending;
    auto flush = [&] {
        // The line feed that opens the body is not the user's.
        if (pending.startsWith(QLatin1Char('\n'))) pending.remove(0, 1);
        if (!pending.isEmpty()) parts.append({Part::Text, pending});
        pending.clear();
    };
    QXmlStreamReader reader(html);
    bool inBody = false;
    while (!reader.atEnd()) {
        const QXmlStreamReader::TokenType token = reader.readNext();
        if (!inBody) {
            inBody =
                token == QXmlStreamReader::StartElement && reader.name() == QLatin1String("body");
            continue;
        }
        if (token == QXmlStreamReader::Characters) {
            pending += reader.text();
        } else if (token == QXmlStreamReader::StartElement) {
            if (reader.name() == QLatin1String("br")) {
                pending += QLatin1Char('\n');  // a line break inside a paragraph
                continue;
            }
            const QString src = reader.attributes().value(QLatin1String("src")).toString();
            if (src.isEmpty()) continue;
            const QString code = pictureToCode.value(src);
            if (!code.isEmpty()) {
                pending += code;
                continue;
            }
            flush();
            const QString path =
                src.startsWith(QLatin1String("file:")) ? QUrl(src).toLocalFile() : src;
            parts.append({isPictureSuffix(path) ? Part::Picture : Part::File, path});
        }
    }
    flush();
    return parts;
}
