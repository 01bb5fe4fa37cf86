#include "settingutility.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

#include "plaintext.h"

namespace {
QLabel* heading(const QString& text, QWidget* parent) {
    auto* l = new QLabel(text, parent);
    l->setStyleSheet(QStringLiteral("QLabel{color:#1f2d3d;font-weight:bold;padding-top:8px;}"));
    return l;
}
}  // namespace

SettingUtility::SettingUtility(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("settingUtility"));
    auto* v = new QVBoxLayout(this);
    v->addWidget(heading(QStringLiteral("字体大小"), this));
    fontSize = new QComboBox(this);
    fontSize->setObjectName(QStringLiteral("fontSize"));
    fontSize->addItem(QStringLiteral("跟随系统"), 0);
    fontSize->addItem(QStringLiteral("小"), 12);
    fontSize->addItem(QStringLiteral("中"), 14);
    fontSize->addItem(QStringLiteral("大"), 16);
    fontSize->addItem(QStringLiteral("特大"), 18);
    v->addWidget(fontSize, 0, Qt::AlignLeft);
    v->addWidget(heading(QStringLiteral("文件保存位置"), this));
    auto* row = new QHBoxLayout;
    downloadDir = plaintext::label(QString(), this);
    downloadDir->setObjectName(QStringLiteral("downloadDir"));
    downloadDir->setTextInteractionFlags(Qt::TextSelectableByMouse);
    downloadDir->setStyleSheet(QStringLiteral("QLabel{color:#475669;}"));
    browse = new QPushButton(QStringLiteral("更改目录"), this);
    browse->setObjectName(QStringLiteral("browse"));
    row->addWidget(downloadDir, 1);
    row->addWidget(browse);
    v->addLayout(row);

    v->addWidget(heading(QStringLiteral("登录"), this));
    autoLogin = new QCheckBox(QStringLiteral("自动登录"), this);
    autoLogin->setObjectName(QStringLiteral("autoLogin"));
    startWithSystem = new QCheckBox(QStringLiteral("开机时自动启动 Quelix"), this);
    startWithSystem->setObjectName(QStringLiteral("startWithSystem"));
    v->addWidget(autoLogin);
    v->addWidget(startWithSystem);

    v->addWidget(heading(QStringLiteral("关闭主面板时"), this));
    closeToTray = new QRadioButton(QStringLiteral("最小化到系统托盘，继续接收消息"), this);
    closeToTray->setObjectName(QStringLiteral("closeToTray"));
    closeQuits = new QRadioButton(QStringLiteral("退出程序"), this);
    closeQuits->setObjectName(QStringLiteral("closeQuits"));
    auto* group = new QButtonGroup(this);
    group->addButton(closeToTray);
    group->addButton(closeQuits);
    v->addWidget(closeToTray);
    v->addWidget(closeQuits);

    v->addWidget(heading(QStringLiteral("新消息提醒"), this));
    popup = new QCheckBox(QStringLiteral("弹出消息提示"), this);
    popup->setObjectName(QStringLiteral("popup"));
    shining = new QCheckBox(QStringLiteral("托盘图标闪烁"), this);
    shining->setObjectName(QStringLiteral("shining"));
    sounding = new QCheckBox(QStringLiteral("播放提示音"), this);
    sounding->setObjectName(QStringLiteral("sounding"));
    v->addWidget(popup);
    v->addWidget(shining);
    v->addWidget(sounding);
    v->addStretch();
}
