#pragma once

#include <QWidget>

class QPushButton;

// The minimise, maximise/restore and close buttons of the frameless main window's title
// strip. It only reports clicks; the window decides what they do.
class WinStyleButtons : public QWidget {
    Q_OBJECT
public:
    explicit WinStyleButtons(QWidget* parent = nullptr);

    // Shows "restore" instead of "maximise" while the window is maximised.
    void setMaximized(bool maximized);

signals:
    void windowMiniSignal();
    void windowMaxSignal();
    void windowNormalSignal();
    void hideSignal();

public slots:
    void windowMiniSlot();
    void windowMaxSlot();
    void windowNormalSlot();
    void hideSlot();

private:
    QPushButton* mini_;
    QPushButton* max_;
    QPushButton* normal_;
    QPushButton* close_;
};
