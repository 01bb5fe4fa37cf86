#pragma once

#include "talklistitemwidget.h"

class QLabel;
class QPushButton;

// One conversation in the talk list: picture, name, unread badge, and a remove button
// that shows while the pointer is over the row.
class ChatListItemWidget : public TalkListItemWidget {
    Q_OBJECT
public:
    ChatListItemWidget(const QString& id, const QString& name, QWidget* parent = nullptr);

    const QString& id() const { return id_; }
    QString name() const;
    void setAvatar(const QString& path);

signals:
    void deleteItemSignal(QString id);

protected:
    void enterEvent(QEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    QString id_;
    QLabel* avatar_;
    QLabel* name_;
    QPushButton* remove_;
};
