#include "emotionbutton.h"

EmotionButton::EmotionButton(const QString& icon, QWidget* parent)
    : QPushButton(parent), icon_(icon) {
    setFixedSize(40, 28);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::NoFocus);
    setUnHover();
}

void EmotionButton::setChosen(bool chosen) {
    chosen_ = chosen;
    setUnHover();
}

void EmotionButton::setUnHover() {
    setStyleSheet(QStringLiteral("QPushButton{image: url(%1);border:0px;%2}")
                      .arg(icon_, chosen_ ? QStringLiteral("background-color:white;")
                                          : QStringLiteral("background-color:transparent;")));
}
