#pragma once

#include <QHash>
#include <QList>
#include <QString>

// Turns the html of the message edit into what is sent, in document order: text runs
// (emoticon pictures become their short codes), pictures, and other files. A message that
// mixes text and pictures leaves as several messages: the text before a picture, the
// picture, the text after it.
class InputDocumentWalker {
public:
    struct Part {
        enum Kind { Text, Picture, File };
        Kind kind;
        QString value;  // the text, or the file's path
        bool operator==(const Part& o) const { return kind == o.kind && value == o.value; }
    };

    // pictureToCode: emoticon picture path -> short code.
    static QList<Part> walk(const QString& html, const QHash<QString, QString>& pictureToCode);
    // Whether a file is sent as a picture: its suffix, exactly as written, is a format the
    // image readers know.
    static bool isPictureSuffix(const QString& path);
};
