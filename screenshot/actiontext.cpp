#include "actiontext.h"

#include <QFontMetrics>
#include <QPainter>

namespace screenshot {

namespace {
const int kTextFlags = Qt::AlignLeft | Qt::AlignTop | Qt::TextDontClip;
const QSize kRoom(100000, 100000);
}  // namespace

int ActionText::pixelSizeFor(int penWidth) { return penWidth <= 2 ? 14 : penWidth <= 4 ? 18 : 26; }

ActionText::ActionText(const QColor& color, int penWidth) : ScreenShotAction(color, penWidth) {}

void ActionText::start(const QPoint& point) { position_ = point; }

// Text stays where it was placed; dragging does not move it.
void ActionText::moveTo(const QPoint&) {}

QFont ActionText::font() const {
    QFont f;
    f.setPixelSize(pixelSizeFor(penWidth()));
    return f;
}

void ActionText::draw(QPainter& painter) const {
    if (text_.isEmpty()) return;
    painter.save();
    painter.setRenderHint(QPainter::TextAntialiasing);
    painter.setFont(font());
    painter.setPen(color());
    painter.drawText(QRect(position_, kRoom), kTextFlags, text_);
    painter.restore();
}

QRect ActionText::bounds() const {
    if (text_.trimmed().isEmpty()) return QRect();
    return QFontMetrics(font())
        .boundingRect(QRect(position_, kRoom), kTextFlags, text_)
        .adjusted(-2, -2, 2, 2);
}

}  // namespace screenshot
