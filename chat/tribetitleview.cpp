#include "tribetitleview.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

#include "plaintext.h"
#include "uifont.h"

TribeTitleView::TribeTitleView(QWidget* parent)
    : QWidget(parent),
      name_(plaintext::label(QString(), this)),
      talk_(new QPushButton(QStringLiteral("发消息"), this)),
      task_(new QPushButton(QStringLiteral("查看任务"), this)),
      quit_(new QPushButton(QStringLiteral("退出群"), this)) {
    setObjectName(QStringLiteral("tribeTitleView"));
    UiFont::keepStyled(name_,
                       QStringLiteral("QLabel{font-size:16px;font-weight:bold;color:#333;}"));
    talk_->setObjectName(QStringLiteral("tribeTalk"));
    task_->setObjectName(QStringLiteral("tribeTask"));
    quit_->setObjectName(QStringLiteral("tribeQuit"));
    quit_->setStyleSheet(QStringLiteral("QPushButton{color:#d93a3a;}"));
    auto* layout = new QHBoxLayout(this);
    layout->addWidget(name_, 1);
    layout->addWidget(talk_);
    layout->addWidget(task_);
    layout->addWidget(quit_);
    connect(talk_, &QPushButton::clicked, this, &TribeTitleView::OnClickedTalk);
    connect(task_, &QPushButton::clicked, this, &TribeTitleView::OnClickedTask);
    connect(quit_, &QPushButton::clicked, this, &TribeTitleView::OnClickedQuit);
    setTribe(QString(), QString(), false);
}

void TribeTitleView::setTribe(const QString& tribeId, const QString& name, bool left, bool owner) {
    tribeId_ = tribeId;
    quit_->setText(owner ? QStringLiteral("解散群") : QStringLiteral("退出群"));
    name_->setText(left ? name + QStringLiteral("（已退出）") : name);
    const bool any = !tribeId.isEmpty();
    talk_->setEnabled(any);
    task_->setEnabled(any && !left);
    quit_->setEnabled(any && !left);
}

void TribeTitleView::OnClickedTalk() {
    if (!tribeId_.isEmpty()) emit talkingInChat(tribeId_);
}

void TribeTitleView::OnClickedTask() {
    if (!tribeId_.isEmpty() && task_->isEnabled()) emit taskPageRequested(tribeId_);
}

void TribeTitleView::OnClickedQuit() {
    if (!tribeId_.isEmpty() && quit_->isEnabled()) emit quitRequested(tribeId_);
}
