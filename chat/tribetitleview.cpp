#include "tribetitleview.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

#include "manager.h"
#include "plaintext.h"
#include "talklistledger.h"
#include "uifont.h"

TribeTitleView::TribeTitleView(QWidget* parent)
    : QWidget(parent),
      name_(plaintext::label(QString(), this)),
      talk_(new QPushButton(QStringLiteral("发消息"), this)),
      task_(new QPushButton(QStringLiteral("查看任务"), this)),
      quit_(new QPushButton(QStringLiteral("退出群"), this)),
      mute_(new QCheckBox(QStringLiteral("消息免打扰"), this)) {
    setObjectName(QStringLiteral("tribeTitleView"));
    UiFont::keepStyled(name_,
                       QStringLiteral("QLabel{font-size:16px;font-weight:bold;color:#333;}"));
    talk_->setObjectName(QStringLiteral("tribeTalk"));
    task_->setObjectName(QStringLiteral("tribeTask"));
    quit_->setObjectName(QStringLiteral("tribeQuit"));
    quit_->setStyleSheet(QStringLiteral("QPushButton{color:#d93a3a;}"));
    mute_->setObjectName(QStringLiteral("tribeMute"));
    mute_->setToolTip(QStringLiteral("开启后，群消息只计未读，不响铃、不弹窗、不闪烁"));
    auto* layout = new QHBoxLayout(this);
    layout->addWidget(name_, 1);
    layout->addWidget(mute_);
    layout->addWidget(talk_);
    layout->addWidget(task_);
    layout->addWidget(quit_);
    connect(talk_, &QPushButton::clicked, this, &TribeTitleView::OnClickedTalk);
    connect(task_, &QPushButton::clicked, this, &TribeTitleView::OnClickedTask);
    connect(quit_, &QPushButton::clicked, this, &TribeTitleView::OnClickedQuit);
    // The talk list keeps the mute list; its row menu and this box stay in step.
    qx_output::Manager* output = qx_output::Manager::instance();
    connect(mute_, &QCheckBox::toggled, this, [this, output](bool on) {
        if (!tribeId_.isEmpty()) output->requestMute(tribeId_, on);
    });
    connect(output, &qx_output::Manager::muteChanged, this, [this](const QString& id, bool muted) {
        if (id == tribeId_) showMuted(muted);
    });
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
    mute_->setEnabled(any && !left);
    showMuted(any && TalkListLedger::isMuted(tribeId));
}

void TribeTitleView::showMuted(bool muted) {
    const QSignalBlocker quiet(mute_);
    mute_->setChecked(muted);
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
