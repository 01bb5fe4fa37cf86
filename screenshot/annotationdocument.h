#pragma once

#include <QImage>
#include <QRect>

#include <memory>
#include <vector>

#include "screenshotaction.h"

class QPainter;

namespace screenshot {

// The finished annotations of one capture, in drawing order, and the picture they make
// with the frozen desktop.
class AnnotationDocument {
public:
    void add(std::unique_ptr<ScreenShotAction> action);
    // Removes only the last annotation; false when there is none.
    bool undo();
    int count() const { return int(actions_.size()); }
    bool isEmpty() const { return actions_.empty(); }
    const ScreenShotAction* at(int i) const { return actions_.at(size_t(i)).get(); }

    // Paints every annotation in order, in the painter's logical coordinates.
    void draw(QPainter& painter) const;

    // The selection (logical coordinates of the desktop) cut from the frozen desktop, whose
    // pixels are `ratio` times the logical size, with every annotation painted on it. The
    // result keeps the desktop's full resolution: a selection of w x h at ratio 2 is a
    // picture of 2w x 2h.
    QImage render(const QImage& desktop, const QRect& selection, qreal ratio,
                  const ScreenShotAction* pending = nullptr) const;

    // The device-pixel rectangle of a logical one.
    static QRect toDevice(const QRect& logical, qreal ratio);

private:
    std::vector<std::unique_ptr<ScreenShotAction>> actions_;
};

}  // namespace screenshot
