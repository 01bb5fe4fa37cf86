#pragma once

#include <QHash>
#include <QList>
#include <QString>

// The emoticons this client knows: the SDK's catalogue (picture and short code, in panel
// order), read once the SDK has started. The input turns pictures into codes with it and
// the output turns codes back into pictures.
class EmotionSet {
public:
    struct Item {
        QString picture;  // a path or resource path the image readers open
        QString code;     // the short code, brackets included: "[smile]"
    };

    static EmotionSet& instance();

    void setItems(const QList<Item>& items);
    const QList<Item>& items() const { return items_; }
    bool isEmpty() const { return items_.isEmpty(); }

    // The picture of a code; empty for an unknown one.
    QString pictureOf(const QString& code) const { return byCode_.value(code); }
    // The code of a picture; empty for a picture that is not an emoticon.
    QString codeOf(const QString& picture) const { return byPicture_.value(picture); }

    // Splits a message text into plain runs and known codes, in order. Unknown bracketed
    // words stay plain text.
    struct Run {
        QString text;
        QString picture;  // non-empty: the run is the emoticon with this picture
    };
    QList<Run> split(const QString& text) const;

private:
    QList<Item> items_;
    QHash<QString, QString> byCode_;
    QHash<QString, QString> byPicture_;
    int longestCode_ = 0;
};
