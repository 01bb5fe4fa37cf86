#pragma once

#include <QImage>
#include <QRect>
#include <QString>

namespace screenshot {

// The frozen desktop the overlay works on: every screen in one picture. geometry is the
// virtual desktop in logical coordinates; the picture has `ratio` pixels per logical one.
// When the platform would not let us grab, refusal says why and the picture is empty.
struct DesktopImage {
    QImage image;
    QRect geometry;
    qreal ratio = 1.0;
    QString refusal;

    bool isValid() const { return refusal.isEmpty() && !image.isNull() && !geometry.isEmpty(); }
};

}  // namespace screenshot
