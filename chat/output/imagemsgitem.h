#pragma once

#include <QPixmap>
#include <QPointer>

#include "baseitem.h"

#include <QMovie>

namespace qx_output {

// A picture message: the picture scaled into the bubble, animated pictures played through
// the player the whole client shares for that file, a loading animation while the
// picture is on its way and a placeholder when it cannot be read.
class ImageMsgItem : public BaseItem {
    Q_OBJECT
public:
    static constexpr const char* kLoadingPicture = ":/resource/style/images/loading.gif";
    static constexpr const char* kBrokenPicture = ":/resource/style/images/picture_broken.png";

    ImageMsgItem(const MessageEntry& entry, QWidget* parent = nullptr);
    const QString& path() const { return path_; }
    bool isBroken() const { return broken_; }
    bool isAnimated() const { return movie_ != nullptr && !loading_; }

signals:
    void showPictureSignal(const QString& path);
    void showPictureMenuSignal(const QString& path);

public slots:
    void OnAnimate(int frame);
    // The picture's file format ("png", "gif", ...), empty when unreadable.
    QString indexFormat() const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    bool paintsBubble() const override { return false; }

private:
    QString path_;
    bool loading_;
    bool broken_ = false;
    QPixmap pixmap_;
    QPointer<QMovie> movie_;
};

}  // namespace qx_output
