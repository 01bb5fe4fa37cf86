#include "accountitem.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>

#include "plaintext.h"

AccountItem::AccountItem(const QString& account, QWidget* parent)
    : QWidget(parent), account_(account) {
    name_ = plaintext::label(account, this);
    remove_ = new QPushButton(this);
    remove_->setObjectName(QStringLiteral("removeAccount"));
    remove_->setFixedSize(16, 16);
    remove_->setFocusPolicy(Qt::NoFocus);
    remove_->setStyleSheet(QStringLiteral("QPushButton{border-image:url(:/resource/Chat/x.png);}"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(8, 2, 8, 2);
    layout->addWidget(name_, 1);
    layout->addWidget(remove_);
    connect(remove_, &QPushButton::clicked, this, &AccountItem::removeAccountSlot);
}

void AccountItem::removeAccountSlot() { emit removeAccount(account_); }

void AccountItem::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) emit showAccount(account_);
    QWidget::mouseReleaseEvent(event);
}
