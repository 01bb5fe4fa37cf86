#include "personalinforcard.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "avatarpixmapcache.h"
#include "colleague.h"
#include "directorystore.h"
#include "plaintext.h"
#include "uifont.h"

PersonalInforCard::PersonalInforCard(QWidget* parent, DirectoryStore* store,
                                     AvatarPixmapCache* avatars)
    : QFrame(parent),
      store_(store ? store : &DirectoryStore::instance()),
      avatars_(avatars ? avatars : new AvatarPixmapCache(store_, nullptr, this)),
      avatar_(new QLabel(this)),
      name_(plaintext::label(QString(), this)),
      state_(new QLabel(this)),
      dept_(plaintext::label(QString(), this)),
      mobile_(plaintext::label(QString(), this)),
      email_(plaintext::label(QString(), this)),
      chat_(new QPushButton(QStringLiteral("发消息"), this)),
      share_(new QPushButton(QStringLiteral("分享名片"), this)) {
    setObjectName(QStringLiteral("personalInforCard"));
    setStyleSheet(QStringLiteral(
        "QFrame#personalInforCard{background-color:#ffffff;border:1px solid #dfe8ef;"
        "border-radius:4px;} QLabel{background:transparent;color:#444;}"
        "QPushButton{background-color:#3a8ee6;color:#fff;border:none;border-radius:3px;"
        "padding:6px 14px;} QPushButton:hover{background-color:#5aa0ea;}"));
    avatar_->setFixedSize(kAvatar, kAvatar);
    name_->setObjectName(QStringLiteral("cardName"));
    UiFont::keepStyled(name_, QStringLiteral("QLabel{font-size:18px;font-weight:bold;}"));
    state_->setObjectName(QStringLiteral("cardState"));
    for (QLabel* l : {dept_, mobile_, email_})
        l->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto* head = new QHBoxLayout;
    head->addWidget(avatar_);
    auto* names = new QVBoxLayout;
    names->addWidget(name_);
    names->addWidget(state_);
    head->addLayout(names, 1);

    auto* fields = new QFormLayout;
    fields->addRow(QStringLiteral("部门"), dept_);
    fields->addRow(QStringLiteral("手机"), mobile_);
    fields->addRow(QStringLiteral("邮箱"), email_);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(chat_);
    buttons->addWidget(share_);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(head);
    layout->addLayout(fields);
    layout->addStretch();
    layout->addLayout(buttons);

    connect(chat_, &QPushButton::clicked, this, &PersonalInforCard::ChatBtnClicked);
    connect(share_, &QPushButton::clicked, this, &PersonalInforCard::ShareBtnClicked);
    connect(avatars_, &AvatarPixmapCache::avatarChanged, this, &PersonalInforCard::UpdateUserIcon);
    setUser(QString());
}

bool PersonalInforCard::setUser(const QString& userId) {
    const Colleague* c = store_->colleague(userId);
    userId_ = c ? userId : QString();
    const auto orDash = [](const QString& s) { return s.isEmpty() ? QStringLiteral("—") : s; };
    name_->setText(c ? c->displayName() : QString());
    dept_->setText(c ? orDash(c->deptName()) : QString());
    mobile_->setText(c ? orDash(c->mobile()) : QString());
    email_->setText(c ? orDash(c->email()) : QString());
    // Nobody to chat with or to share on an empty card.
    chat_->setEnabled(c);
    share_->setEnabled(c);
    // Chatting with oneself is not offered; sharing one's own card is.
    if (c && userId_ == store_->selfId()) chat_->setEnabled(false);
    refreshPicture();
    return c;
}

void PersonalInforCard::refreshPicture() {
    if (userId_.isEmpty()) {
        avatar_->clear();
        state_->clear();
        return;
    }
    const bool online = userId_ == store_->selfId() || store_->isOnline(userId_);
    avatar_->setPixmap(avatars_->pixmap(userId_, online, kAvatar));
    state_->setText(online ? QStringLiteral("在线") : QStringLiteral("离线"));
    state_->setStyleSheet(online ? QStringLiteral("QLabel{color:#3cb371;}")
                                 : QStringLiteral("QLabel{color:#999;}"));
}

void PersonalInforCard::ChatBtnClicked() {
    if (!userId_.isEmpty()) emit inforCardChatSignal(userId_);
}

void PersonalInforCard::ShareBtnClicked() {
    if (!userId_.isEmpty()) emit inforCardShareSignal(userId_);
}

void PersonalInforCard::UpdateUserIcon(const QString& userId) {
    if (userId == userId_) refreshPicture();
}

void PersonalInforCard::setOnline(const QString& userId, bool) {
    if (userId == userId_) refreshPicture();
}
