#pragma once

#include <QWidget>

class QScrollArea;

namespace qx_output {

class PictureLable;

// The picture viewer: one window that shows a picture at full size, scrolling when it is
// larger than the screen allows.
class ShowPictureWidget : public QWidget {
    Q_OBJECT
public:
    explicit ShowPictureWidget(QWidget* parent = nullptr);
    bool showPicture(const QString& path);
    const QString& path() const { return path_; }
    PictureLable* label() const { return label_; }

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    QScrollArea* area_;
    PictureLable* label_;
    QString path_;
};

}  // namespace qx_output
