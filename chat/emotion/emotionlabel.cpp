#include "emotionlabel.h"

#include <QMouseEvent>
#include <QMovie>

#include "manager.h"
#include "sdk/wide_text.h"

EmotionLabel::EmotionLabel(const openim::IMEmotionItem& item, QWidget* parent)
    : QLabel(parent), sticker_(false), item_(item) {
    show(wide_text::toQ(item.emPngFixedPath), kCell);
    setToolTip(wide_text::toQ(item.emotionShortCut));
}

EmotionLabel::EmotionLabel(const QString& stickerPath, int cell, QWidget* parent)
    : QLabel(parent), sticker_(true) {
    show(stickerPath, cell);
}

void EmotionLabel::show(const QString& path, int cell) {
    path_ = path;
    setFixedSize(cell, cell);
    setAlignment(Qt::AlignCenter);
    setCursor(Qt::PointingHandCursor);
    setStyleSheet(QStringLiteral("QLabel{border-left:0px solid gray;border-top:0px solid gray;"
                                 "border-right:%1px solid gray;border-bottom:%1px solid gray;"
                                 "background:#f0f1f3;}QLabel:hover{background:white;}")
                      .arg(1));
    const int inner = cell - 6;
    // Animated pictures play through the player the whole client shares for the file.
    if (QMovie* movie = qx_output::Manager::instance()->getMovie(path)) {
        connect(movie, &QMovie::frameChanged, this, [this, movie, inner] {
            setPixmap(movie->currentPixmap().scaled(inner, inner, Qt::KeepAspectRatio,
                                                    Qt::SmoothTransformation));
        });
        setPixmap(movie->currentPixmap().scaled(inner, inner, Qt::KeepAspectRatio,
                                                Qt::SmoothTransformation));
    } else {
        setPixmap(
            QPixmap(path).scaled(inner, inner, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    }
}

void EmotionLabel::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton && rect().contains(event->pos())) {
        if (sticker_)
            emit clicked(path_);
        else
            emit clicked(item_);
        return;
    }
    QLabel::mouseReleaseEvent(event);
}
