#pragma once

#include <QWidget>

class QLabel;

// A talk-list row's base: it carries the unread count and the badge that shows it.
class TalkListItemWidget : public QWidget {
    Q_OBJECT
public:
    explicit TalkListItemWidget(QWidget* parent = nullptr);

    int unreadCount() const { return unread_; }
    // Writes the count into the badge, shown only when it is above 0.
    void setUnreadCount(int count);
    QLabel* badge() const { return badge_; }

private:
    int unread_ = 0;
    QLabel* badge_;
};
