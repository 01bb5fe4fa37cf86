#pragma once

#include <QTimer>
#include <QWidget>

class QLabel;
class QPropertyAnimation;

// The new-message pop-up: slides up in the screen's lower right corner with the sender's
// avatar, name and the message summary, stays while the pointer is on it, and goes away
// after a few seconds. A click opens the conversation (msgTipClicked).
class MessageLabel : public QWidget {
    Q_OBJECT
public:
    explicit MessageLabel(QWidget* parent = nullptr);

    static constexpr int kShowMs = 5000;
    static constexpr int kSlideMs = 250;

    void showMessage(const QString& id, const QString& name, const QString& summary,
                     const QString& avatar);
    const QString& conversationId() const { return id_; }
    QTimer* hideTimer() { return &hideTimer_; }

signals:
    void msgTipClicked(QString id);

protected:
    void mouseReleaseEvent(QMouseEvent* event) override;
    void enterEvent(QEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    void applyText();

    struct Text {
        QString name, summary, avatar;
    };
    Text pending_;
    bool textQueued_ = false;
    QString id_;
    QString avatarPath_;
    QLabel* avatar_;
    QLabel* name_;
    QLabel* summary_;
    QTimer hideTimer_;
    QPropertyAnimation* slide_;
};
