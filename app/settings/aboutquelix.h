#pragma once

#include <QDialog>

class QPushButton;

// The about box: the client's version and a button to look for a newer one now.
class AboutQuelix : public QDialog {
    Q_OBJECT
public:
    explicit AboutQuelix(QWidget* parent = nullptr);

    QPushButton* checkButton() const { return check_; }

signals:
    void checkUpdateSignal();
    void feedBackSignal();

private:
    QPushButton* check_;
};
