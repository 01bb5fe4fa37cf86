#pragma once

#include <QWidget>

class QCheckBox;
class QLabel;
class QPushButton;

// The head of an open tribe: its name and the actions on it. It only forwards: the page
// opens the conversation, the task page and the dissolve-or-leave question; the mute box asks
// the talk list, which keeps the mute list.
class TribeTitleView : public QWidget {
    Q_OBJECT
public:
    explicit TribeTitleView(QWidget* parent = nullptr);

    // left: the user is no longer a member (the history still opens, nothing else);
    // owner: the user owns it, so the button dissolves it instead of leaving it.
    void setTribe(const QString& tribeId, const QString& name, bool left, bool owner = false);
    const QString& tribeId() const { return tribeId_; }

    QLabel* nameLabel() const { return name_; }
    QPushButton* talkButton() const { return talk_; }
    QPushButton* taskButton() const { return task_; }
    QPushButton* quitButton() const { return quit_; }
    QCheckBox* muteBox() const { return mute_; }
    // Shows the muted state without asking for a change.
    void showMuted(bool muted);

signals:
    void talkingInChat(const QString& tribeId);
    void taskPageRequested(const QString& tribeId);
    void quitRequested(const QString& tribeId);

public slots:
    void OnClickedTalk();
    void OnClickedTask();
    void OnClickedQuit();

private:
    QString tribeId_;
    QLabel* name_;
    QPushButton* talk_;
    QPushButton* task_;
    QPushButton* quit_;
    QCheckBox* mute_;
};
