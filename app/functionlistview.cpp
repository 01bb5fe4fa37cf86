#include "functionlistview.h"

#include <QLabel>
#include <QMouseEvent>
#include <QVBoxLayout>

#include "plaintext.h"
#include "screenmetrics.h"

FunctionListView::FunctionListView(QWidget* parent) : QWidget(parent) {
    const ScreenMetrics& m = ScreenMetrics::instance();
    const int size = m.value(ScreenMetrics::AvatarSize);
    avatar_ = new QLabel(this);
    avatar_->setFixedSize(size, size);
    avatar_->setScaledContents(true);
    avatar_->setPixmap(QPixmap(QStringLiteral(":/resource/Chat/default_user_icon.png")));
    name_ = plaintext::label(tr("Not signed in"), this);  // later the user's own name
    name_->setAlignment(Qt::AlignCenter);
    name_->setStyleSheet(
        QStringLiteral("QLabel{color:#c9d4e2;font-size:%1px;background:transparent;}")
            .arg(m.value(ScreenMetrics::FontSizeSmall)));
    setToolTip(tr("Double-click to open the work site"));

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 12, 0, 12);
    layout->setSpacing(4);
    layout->addWidget(avatar_, 0, Qt::AlignHCenter);
    layout->addWidget(name_, 0, Qt::AlignHCenter);
}

void FunctionListView::setUser(const QString& name, const QPixmap& avatar) {
    name_->setText(name);
    if (!avatar.isNull()) avatar_->setPixmap(avatar);
}

void FunctionListView::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) emit funcListDbclickSignal();
    QWidget::mouseDoubleClickEvent(event);
}
