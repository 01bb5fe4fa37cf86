#pragma once

#include <QFrame>

class AvatarPixmapCache;
class DirectoryStore;
class QLabel;
class QPushButton;

// A colleague's card: avatar (grey while they are off line), name, department, mobile
// and e-mail, with a button to chat with them and one to share the card into a chat.
class PersonalInforCard : public QFrame {
    Q_OBJECT
public:
    static constexpr int kAvatar = 80;

    explicit PersonalInforCard(QWidget* parent = nullptr, DirectoryStore* store = nullptr,
                               AvatarPixmapCache* avatars = nullptr);

    // False (and an empty card) for an id the directory does not know.
    bool setUser(const QString& userId);
    const QString& userId() const { return userId_; }

    QLabel* nameLabel() const { return name_; }
    QLabel* departmentLabel() const { return dept_; }
    QLabel* mobileLabel() const { return mobile_; }
    QLabel* emailLabel() const { return email_; }
    QLabel* stateLabel() const { return state_; }
    QPushButton* chatButton() const { return chat_; }
    QPushButton* shareButton() const { return share_; }

signals:
    void inforCardChatSignal(const QString& userId);
    void inforCardShareSignal(const QString& userId);

public slots:
    void ChatBtnClicked();
    void ShareBtnClicked();
    void UpdateUserIcon(const QString& userId);
    void setOnline(const QString& userId, bool online);

private:
    void refreshPicture();

    DirectoryStore* store_;
    AvatarPixmapCache* avatars_;
    QString userId_;
    QLabel* avatar_;
    QLabel* name_;
    QLabel* state_;
    QLabel* dept_;
    QLabel* mobile_;
    QLabel* email_;
    QPushButton* chat_;
    QPushButton* share_;
};
