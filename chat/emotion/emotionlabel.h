#pragma once

#include <QLabel>
#include <QPointer>

#include "openim/im_emotion_item.h"

class QMovie;

// One cell of the emoticon panel: a catalogue emoticon or a sticker, its picture scaled to
// the cell and played when animated; white under the mouse.
class EmotionLabel : public QLabel {
    Q_OBJECT
public:
    static constexpr int kCell = 34;

    EmotionLabel(const openim::IMEmotionItem& item, QWidget* parent = nullptr);
    EmotionLabel(const QString& stickerPath, int cell, QWidget* parent = nullptr);
    const QString& picturePath() const { return path_; }

signals:
    void clicked(const openim::IMEmotionItem& item);
    void clicked(const QString& stickerPath);

protected:
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    void show(const QString& path, int cell);

    bool sticker_;
    openim::IMEmotionItem item_;
    QString path_;
};
