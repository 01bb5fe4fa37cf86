#include "annotationdocument.h"

#include <QPainter>

#include <cmath>

namespace screenshot {

void AnnotationDocument::add(std::unique_ptr<ScreenShotAction> action) {
    if (action) actions_.push_back(std::move(action));
}

bool AnnotationDocument::undo() {
    if (actions_.empty()) return false;
    actions_.pop_back();
    return true;
}

void AnnotationDocument::draw(QPainter& painter) const {
    for (const auto& action : actions_) action->draw(painter);
}

QRect AnnotationDocument::toDevice(const QRect& logical, qreal ratio) {
    const int x = int(std::lround(logical.x() * ratio));
    const int y = int(std::lround(logical.y() * ratio));
    const int w = int(std::lround(logical.width() * ratio));
    const int h = int(std::lround(logical.height() * ratio));
    return QRect(x, y, w, h);
}

QImage AnnotationDocument::render(const QImage& desktop, const QRect& selection, qreal ratio,
                                  const ScreenShotAction* pending) const {
    const QRect source = toDevice(selection.normalized(), ratio).intersected(desktop.rect());
    if (source.isEmpty()) return QImage();
    QImage out = desktop.copy(source).convertToFormat(QImage::Format_RGB32);
    out.setDevicePixelRatio(1.0);
    QPainter painter(&out);
    painter.scale(ratio, ratio);
    painter.translate(-QPointF(source.topLeft()) / ratio);
    draw(painter);
    if (pending) pending->draw(painter);
    painter.end();
    return out;
}

}  // namespace screenshot
