#pragma once

#include <QLabel>

namespace qx_output {

// The picture at full size inside the viewer; animated pictures play.
class PictureLable : public QLabel {
    Q_OBJECT
public:
    explicit PictureLable(QWidget* parent = nullptr);
    // False when the file is not a readable picture (the label then says so).
    bool setPicture(const QString& path);
};

}  // namespace qx_output
