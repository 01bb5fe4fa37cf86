#pragma once

#include <QFrame>

#include "openim/im_emotion_item.h"

class EmotionButton;
class QGridLayout;
class QStackedWidget;

// The emoticon panel: the catalogue's emoticons in ten columns, our stickers in seven, two
// tabs to switch between them. It opens above the emoticon button and closes when the
// user clicks elsewhere or picks something.
class EmotionWidget : public QFrame {
    Q_OBJECT
public:
    static constexpr int kDefaultColumns = 10;
    static constexpr int kStickerColumns = 7;
    static constexpr int kStickerCell = 64;

    explicit EmotionWidget(QWidget* parent = nullptr);

    void setEmotions(const std::vector<openim::IMEmotionItem>& items);
    void setStickers(const QStringList& paths);
    // Shows the panel with its bottom edge on the top of `button`.
    void popUpAbove(QWidget* button);

    QGridLayout* defaultGrid() const { return defaultGrid_; }
    QGridLayout* stickerGrid() const { return stickerGrid_; }
    int currentArea() const;

    // The stickers we ship, copied into `folder` once, with what the user put there.
    static QStringList stickerFiles(const QString& folder);

signals:
    void clickedOneEmotion(const QString& emPngFixedPath, const QString& emotionShortCut);
    void clickedOneEmotion(const QString& stickerPath);

public slots:
    void clickedOneSlot(const openim::IMEmotionItem& item);
    void showDefultArea();
    void showBannArea();

private:
    QWidget* area(QGridLayout** grid);

    QStackedWidget* stack_;
    QGridLayout* defaultGrid_;
    QGridLayout* stickerGrid_;
    EmotionButton* defaultTab_;
    EmotionButton* stickerTab_;
};
