#pragma once

#include <QColor>
#include <QWidget>

#include "messageentry.h"

namespace qx_output {

// A message row: the sender's avatar, in tribes the sender's name, and a bubble that the
// kind-specific item fills. Avatar, name and bubble are painted, not child widgets, so a
// row costs one widget plus what its content needs.
class BaseItem : public QWidget {
    Q_OBJECT
public:
    BaseItem(const MessageEntry& entry, QWidget* parent = nullptr);

    const QString& senderId() const { return senderId_; }
    bool isSelf() const { return isSelf_; }
    quint64 msgId() const { return msgId_; }
    // Where the content goes, in this widget's coordinates.
    QRect contentRect() const;
    QRect avatarRect() const;
    QRect bubbleRect() const;
    QColor bubbleColour() const;

    // The scaled avatar of a colleague, shared by every row that shows it.
    static QPixmap avatarPixmap(const QString& userId);
    static void forgetAvatar(const QString& userId);

signals:
    void avatarClickedSignal(const QString& userId);

public slots:
    void onAvatarClicked();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    virtual bool paintsBubble() const { return true; }

    QSize content_;

private:
    QString senderId_;
    QString senderName_;
    quint64 msgId_;
    bool isSelf_;
    bool showName_;
};

}  // namespace qx_output
