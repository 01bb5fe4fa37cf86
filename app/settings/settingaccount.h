#pragma once

#include <QWidget>

class QCheckBox;
class QPushButton;

// The account page of the settings: which task notifications reach the user, the about
// box, feedback, and leaving the client. Widgets only; SettingDialog stores.
class SettingAccount : public QWidget {
    Q_OBJECT
public:
    explicit SettingAccount(QWidget* parent = nullptr);

    QCheckBox* reply;
    QCheckBox* suspend;
    QCheckBox* dispose;
    QCheckBox* complete;
    QCheckBox* createAndDelete;
    QPushButton* about;
    QPushButton* feedback;
    QPushButton* exit;
};
