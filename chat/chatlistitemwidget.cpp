#include "chatlistitemwidget.h"

#include <QApplication>
#include <QContextMenuEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QPushButton>

#include "plaintext.h"
#include "screenmetrics.h"
#include "uifont.h"

ChatListItemWidget::ChatListItemWidget(const QString& id, const QString& name, QWidget* parent)
    : TalkListItemWidget(parent), id_(id) {
    const ScreenMetrics& m = ScreenMetrics::instance();
    setAttribute(Qt::WA_Hover);
    setStyleSheet(QStringLiteral("QWidget::hover{background: rgba(230,233,236, 5%);}"));
    avatar_ = new QLabel(this);
    const int size = m.value(ScreenMetrics::AvatarSize) - 4;
    avatar_->setFixedSize(size, size);
    avatar_->setScaledContents(true);
    name_ = plaintext::label(name, this);
    const auto styleName = [this] {
        name_->setStyleSheet(
            QStringLiteral("QLabel{background-color:transparent;border-style:none;font-family:%2;"
                           "font-size:%1px;color:#444;}")
                .arg(UiFont::px(ScreenMetrics::instance().value(ScreenMetrics::FontSizeNormal)))
                .arg(QApplication::font().family()));
    };
    styleName();
    connect(&UiFont::instance(), &UiFont::changed, name_, styleName);
    mutedMark_ = plaintext::label(QStringLiteral("免打扰"), this);
    mutedMark_->setObjectName(QStringLiteral("mutedMark"));
    mutedMark_->setToolTip(QStringLiteral("已开启消息免打扰"));
    UiFont::keepStyled(
        mutedMark_,
        QStringLiteral(
            "QLabel{color:#9aa5b1;font-size:11px;border:1px solid #c8ced6;border-radius:3px;"
            "padding:0 2px;background:transparent;}"));
    mutedMark_->hide();
    remove_ = new QPushButton(this);
    remove_->setObjectName(QStringLiteral("removeConversation"));
    remove_->setFixedSize(14, 14);
    remove_->setFocusPolicy(Qt::NoFocus);
    remove_->setStyleSheet(QStringLiteral("QPushButton{border-image:url(:/resource/Chat/x.png);}"));
    remove_->hide();
    connect(remove_, &QPushButton::clicked, this, [this] { emit deleteItemSignal(id_); });

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(10, 6, 10, 6);
    layout->setSpacing(8);
    layout->addWidget(avatar_);
    layout->addWidget(name_, 1);
    layout->addWidget(mutedMark_);
    layout->addWidget(badge());
    layout->addWidget(remove_);
}

QString ChatListItemWidget::name() const { return name_->text(); }

void ChatListItemWidget::setAvatar(const QString& path) { avatar_->setPixmap(QPixmap(path)); }

void ChatListItemWidget::setMuted(bool muted) {
    muted_ = muted;
    mutedMark_->setVisible(muted);
}

QMenu* ChatListItemWidget::makeMenu(QWidget* parent) {
    auto* menu = new QMenu(parent);
    QAction* mute = menu->addAction(QStringLiteral("消息免打扰"));
    mute->setObjectName(QStringLiteral("muteAction"));
    mute->setCheckable(true);
    mute->setChecked(muted_);
    const QString id = id_;
    connect(mute, &QAction::toggled, this, [this, id](bool on) { emit muteRequested(id, on); });
    return menu;
}

void ChatListItemWidget::contextMenuEvent(QContextMenuEvent* event) {
    QMenu* menu = makeMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(event->globalPos());
    event->accept();
}

void ChatListItemWidget::enterEvent(QEvent* event) {
    remove_->show();
    TalkListItemWidget::enterEvent(event);
}

void ChatListItemWidget::leaveEvent(QEvent* event) {
    remove_->hide();
    TalkListItemWidget::leaveEvent(event);
}
