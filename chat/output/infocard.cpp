#include "infocard.h"

#include <QGridLayout>
#include <QLabel>
#include <QPushButton>

#include "baseitem.h"
#include "directorystore.h"
#include "uifont.h"

namespace qx_output {

InfoCard::InfoCard(QWidget* parent) : QFrame(parent) {
    setObjectName(QStringLiteral("infoCard"));
    setStyleSheet(
        QStringLiteral("QFrame#infoCard{background-color:#ffffff;border:1px solid "
                       "#dfe8ef;border-radius:4px;}"));
    setFixedSize(240, 110);
    avatar_ = new QLabel(this);
    avatar_->setFixedSize(48, 48);
    name_ = new QLabel(this);
    name_->setTextFormat(Qt::PlainText);
    UiFont::keepStyled(name_, QStringLiteral("QLabel{font-size:15px;font-weight:bold;}"));
    dept_ = new QLabel(this);
    dept_->setTextFormat(Qt::PlainText);
    dept_->setStyleSheet(QStringLiteral("QLabel{color:#888888;}"));
    auto* chat = new QPushButton(QStringLiteral("发消息"), this);
    chat->setCursor(Qt::PointingHandCursor);
    connect(chat, &QPushButton::clicked, this, [this] { emit inforCardChatSignal(userId_); });
    auto* grid = new QGridLayout(this);
    grid->addWidget(avatar_, 0, 0, 2, 1);
    grid->addWidget(name_, 0, 1);
    grid->addWidget(dept_, 1, 1);
    grid->addWidget(chat, 2, 1, Qt::AlignRight);
    hide();
}

void InfoCard::setUser(const QString& userId) {
    userId_ = userId;
    avatar_->setPixmap(BaseItem::avatarPixmap(userId));
    const Colleague* c = DirectoryStore::instance().colleague(userId);
    name_->setText(c ? c->displayName() : userId);
    dept_->setText(c ? c->deptName() : QString());
}

QString InfoCard::nameText() const { return name_->text(); }

}  // namespace qx_output
