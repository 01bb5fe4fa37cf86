#include "settingaccount.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

SettingAccount::SettingAccount(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("settingAccount"));
    auto* v = new QVBoxLayout(this);
    auto* title = new QLabel(QStringLiteral("任务通知"), this);
    title->setStyleSheet(QStringLiteral("QLabel{color:#1f2d3d;font-weight:bold;padding-top:8px;}"));
    v->addWidget(title);
    const struct {
        QCheckBox** box;
        const char* text;
        const char* name;
    } boxes[] = {
        {&reply, "任务有新回复时", "reply"},
        {&suspend, "任务被挂起时", "suspend"},
        {&dispose, "任务被处理时", "dispose"},
        {&complete, "任务完成时", "complete"},
        {&createAndDelete, "任务创建或删除时", "createAndDelete"},
    };
    for (const auto& b : boxes) {
        *b.box = new QCheckBox(QString::fromUtf8(b.text), this);
        (*b.box)->setObjectName(QLatin1String(b.name));
        v->addWidget(*b.box);
    }
    v->addStretch();
    auto* buttons = new QHBoxLayout;
    about = new QPushButton(QStringLiteral("关于 Quelix"), this);
    about->setObjectName(QStringLiteral("about"));
    feedback = new QPushButton(QStringLiteral("意见反馈"), this);
    feedback->setObjectName(QStringLiteral("feedback"));
    exit = new QPushButton(QStringLiteral("退出 Quelix"), this);
    exit->setObjectName(QStringLiteral("exit"));
    buttons->addWidget(about);
    buttons->addWidget(feedback);
    buttons->addStretch();
    buttons->addWidget(exit);
    v->addLayout(buttons);
}
