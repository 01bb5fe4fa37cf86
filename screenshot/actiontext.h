#pragma once

#include <QFont>
#include <QString>

#include "screenshotaction.h"

namespace screenshot {

// Typed text at a position. It is typed in the overlay's in-place edit; once editing ends
// the edit's plain text is kept here and drawn with the same font and colour.
class ActionText : public ScreenShotAction {
public:
    // The text size follows the chosen pen size, so the three sizes read as small,
    // medium and large text as well.
    static int pixelSizeFor(int penWidth);

    ActionText(const QColor& color, int penWidth);
    void start(const QPoint& point) override;
    void moveTo(const QPoint& point) override;
    void draw(QPainter& painter) const override;
    QRect bounds() const override;

    void setText(const QString& text) { text_ = text; }
    const QString& text() const { return text_; }
    QPoint position() const { return position_; }
    QFont font() const;

private:
    QPoint position_;
    QString text_;
};

}  // namespace screenshot
