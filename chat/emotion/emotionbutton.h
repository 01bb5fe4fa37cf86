#pragma once

#include <QPushButton>

// A tab of the emoticon panel: its picture, white when chosen.
class EmotionButton : public QPushButton {
    Q_OBJECT
public:
    EmotionButton(const QString& icon, QWidget* parent = nullptr);
    void setChosen(bool chosen);
    bool isChosen() const { return chosen_; }

public slots:
    void setUnHover();

private:
    QString icon_;
    bool chosen_ = false;
};
