#include "membericonandnamewidget.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>

#include "plaintext.h"
#include "uifont.h"

MemberIconAndNameWidget::MemberIconAndNameWidget(QWidget* parent)
    : QWidget(parent),
      avatar_(new QLabel(this)),
      name_(plaintext::label(QString(), this)),
      mark_(new QLabel(this)) {
    setAttribute(Qt::WA_StyledBackground);
    setObjectName(QStringLiteral("memberRow"));
    setStyleSheet(
        QStringLiteral("QWidget#memberRow:hover{background-color:#eef1f4;}"
                       "QLabel{background:transparent;}"));
    avatar_->setFixedSize(28, 28);
    mark_->setText(QStringLiteral("群主"));
    mark_->setStyleSheet(UiFont::scaled(QStringLiteral("QLabel{color:#FFA54F;font-size:11px;}")));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(6, 2, 6, 2);
    layout->addWidget(avatar_);
    layout->addWidget(name_, 1);
    layout->addWidget(mark_);
}

void MemberIconAndNameWidget::setMember(const QString& userId, const QString& name,
                                        const QPixmap& avatar, bool online, bool owner) {
    userId_ = userId;
    name_->setText(name);
    name_->setStyleSheet(online ? QStringLiteral("QLabel{color:#444;}")
                                : QStringLiteral("QLabel{color:#999;}"));
    avatar_->setPixmap(avatar);
    mark_->setVisible(owner);
}

QString MemberIconAndNameWidget::name() const { return name_->text(); }

void MemberIconAndNameWidget::enterEvent(QEvent* event) {
    QWidget::enterEvent(event);
    if (!userId_.isEmpty()) emit enterSignal(userId_);
}

void MemberIconAndNameWidget::leaveEvent(QEvent* event) {
    QWidget::leaveEvent(event);
    if (!userId_.isEmpty()) emit leaveSignal(userId_);
}

void MemberIconAndNameWidget::mouseReleaseEvent(QMouseEvent* event) {
    QWidget::mouseReleaseEvent(event);
    if (event->button() == Qt::LeftButton && rect().contains(event->pos()) && !userId_.isEmpty())
        emit clicked(userId_);
}

void MemberIconAndNameWidget::mouseDoubleClickEvent(QMouseEvent* event) {
    QWidget::mouseDoubleClickEvent(event);
    if (event->button() == Qt::LeftButton && !userId_.isEmpty()) emit doubleClicked(userId_);
}
