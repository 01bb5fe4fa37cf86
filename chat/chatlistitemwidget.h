#pragma once

#include "talklistitemwidget.h"

class QLabel;
class QMenu;
class QPushButton;

// One conversation in the talk list: picture, name, a mark while it is muted, unread
// badge, and a remove button that shows while the pointer is over the row. Its context
// menu mutes and unmutes it ("消息免打扰").
class ChatListItemWidget : public TalkListItemWidget {
    Q_OBJECT
public:
    ChatListItemWidget(const QString& id, const QString& name, QWidget* parent = nullptr);

    const QString& id() const { return id_; }
    QString name() const;
    void setAvatar(const QString& path);
    void setMuted(bool muted);
    bool isMuted() const { return muted_; }
    QLabel* mutedMark() const { return mutedMark_; }
    // The context menu: one checkable "消息免打扰" toggle that asks for the other state.
    QMenu* makeMenu(QWidget* parent);

signals:
    void deleteItemSignal(QString id);
    void muteRequested(const QString& id, bool muted);

protected:
    void enterEvent(QEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;

private:
    QString id_;
    QLabel* avatar_;
    QLabel* name_;
    QLabel* mutedMark_;
    QPushButton* remove_;
    bool muted_ = false;
};
