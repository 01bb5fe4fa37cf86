#include "aboutquelix.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPixmap>
#include <QPushButton>
#include <QVBoxLayout>

#include "configstore.h"
#include "uifont.h"

AboutQuelix::AboutQuelix(QWidget* parent) : QDialog(parent) {
    setObjectName(QStringLiteral("aboutQuelix"));
    setWindowTitle(QStringLiteral("关于 Quelix"));
    auto* v = new QVBoxLayout(this);
    auto* icon = new QLabel(this);
    icon->setPixmap(QPixmap(QStringLiteral(":/resource/app_icon.png")));
    icon->setAlignment(Qt::AlignCenter);
    v->addWidget(icon);
    auto* name = new QLabel(QStringLiteral("Quelix"), this);
    name->setAlignment(Qt::AlignCenter);
    name->setStyleSheet(UiFont::scaled(QStringLiteral("QLabel{font-size:18px;color:#1f2d3d;}")));
    v->addWidget(name);
    auto* version =
        new QLabel(QStringLiteral("版本 %1").arg(QLatin1String(ConfigStore::kVersion)), this);
    version->setObjectName(QStringLiteral("version"));
    version->setAlignment(Qt::AlignCenter);
    v->addWidget(version);
    auto* note = new QLabel(QStringLiteral("企业即时通讯客户端"), this);
    note->setAlignment(Qt::AlignCenter);
    note->setStyleSheet(QStringLiteral("QLabel{color:#8492a6;}"));
    v->addWidget(note);
    auto* buttons = new QHBoxLayout;
    check_ = new QPushButton(QStringLiteral("检查更新"), this);
    check_->setObjectName(QStringLiteral("checkUpdate"));
    auto* feedback = new QPushButton(QStringLiteral("意见反馈"), this);
    auto* close = new QPushButton(QStringLiteral("关闭"), this);
    buttons->addWidget(check_);
    buttons->addWidget(feedback);
    buttons->addStretch();
    buttons->addWidget(close);
    v->addLayout(buttons);
    connect(check_, &QPushButton::clicked, this, &AboutQuelix::checkUpdateSignal);
    connect(feedback, &QPushButton::clicked, this, &AboutQuelix::feedBackSignal);
    connect(close, &QPushButton::clicked, this, &QDialog::accept);
}
