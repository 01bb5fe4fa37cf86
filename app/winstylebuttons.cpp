#include "winstylebuttons.h"

#include <QHBoxLayout>
#include <QPushButton>

#include "screenmetrics.h"

namespace {
QPushButton* makeButton(const QString& normal, const QString& hover, const QString& tip,
                        QWidget* parent) {
    auto* b = new QPushButton(parent);
    const int size = ScreenMetrics::instance().value(ScreenMetrics::TitleButtonSize);
    b->setFixedSize(size, size);
    b->setFocusPolicy(Qt::NoFocus);
    b->setCursor(Qt::PointingHandCursor);
    b->setToolTip(tip);
    b->setStyleSheet(QStringLiteral("QPushButton{border-image:url(%1);background:transparent;}"
                                    "QPushButton:hover{border-image:url(%2);}")
                         .arg(normal, hover));
    return b;
}
}  // namespace

WinStyleButtons::WinStyleButtons(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("WinStyleButtons"));
    mini_ = makeButton(QStringLiteral(":/resource/Chat/mini_normal.png"),
                       QStringLiteral(":/resource/Chat/mini_hover.png"), tr("Minimize"), this);
    max_ = makeButton(QStringLiteral(":/resource/Chat/max_nomal.png"),
                      QStringLiteral(":/resource/Chat/max_hover.png"), tr("Maximize"), this);
    normal_ = makeButton(QStringLiteral(":/resource/Chat/renormal_normal.png"),
                         QStringLiteral(":/resource/Chat/renormal_hover.png"), tr("Restore"), this);
    close_ = makeButton(QStringLiteral(":/resource/Chat/close_normal.png"),
                        QStringLiteral(":/resource/Chat/close_hover.png"), tr("Close"), this);
    mini_->setObjectName(QStringLiteral("mini"));
    max_->setObjectName(QStringLiteral("max"));
    normal_->setObjectName(QStringLiteral("normal"));
    close_->setObjectName(QStringLiteral("close"));
    normal_->hide();

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addWidget(mini_);
    layout->addWidget(max_);
    layout->addWidget(normal_);
    layout->addWidget(close_);

    connect(mini_, &QPushButton::clicked, this, &WinStyleButtons::windowMiniSlot);
    connect(max_, &QPushButton::clicked, this, &WinStyleButtons::windowMaxSlot);
    connect(normal_, &QPushButton::clicked, this, &WinStyleButtons::windowNormalSlot);
    connect(close_, &QPushButton::clicked, this, &WinStyleButtons::hideSlot);
}

void WinStyleButtons::setMaximized(bool maximized) {
    max_->setVisible(!maximized);
    normal_->setVisible(maximized);
}

void WinStyleButtons::windowMiniSlot() { emit windowMiniSignal(); }

void WinStyleButtons::windowMaxSlot() {
    setMaximized(true);
    emit windowMaxSignal();
}

void WinStyleButtons::windowNormalSlot() {
    setMaximized(false);
    emit windowNormalSignal();
}

void WinStyleButtons::hideSlot() { emit hideSignal(); }
