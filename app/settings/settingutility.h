#pragma once

#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class QRadioButton;

// The general page of the settings: the font size, where received files are saved, signing in and
// starting, what closing the window does, and the new-message alerts. Widgets only; SettingDialog
// stores.
class SettingUtility : public QWidget {
    Q_OBJECT
public:
    explicit SettingUtility(QWidget* parent = nullptr);

    QComboBox* fontSize;
    QLabel* downloadDir;
    QPushButton* browse;
    QCheckBox* autoLogin;
    QCheckBox* startWithSystem;
    QRadioButton* closeToTray;
    QRadioButton* closeQuits;
    QCheckBox* popup;
    QCheckBox* shining;
    QCheckBox* sounding;
};
