#include "taskmsgitem.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "cardurls.h"
#include "manager.h"

namespace qx_output {

namespace {
const char* const kEvents[] = {"创建了任务",    "指派给了",      "回复了任务",    "取消了任务",
                               "修改为 待处理", "修改为 处理中", "修改为 暂停中", "修改为 已完成"};

QLabel* plain(const QString& text, QWidget* parent, const char* style = nullptr) {
    auto* label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText);
    label->setText(text);
    if (style) label->setStyleSheet(QLatin1String(style));
    return label;
}
}  // namespace

QString TaskMsgItem::eventText(const QJsonValue& event) {
    if (event.isDouble()) {
        const int i = event.toInt(-1);
        return i >= 0 && i < int(sizeof kEvents / sizeof *kEvents) ? QString::fromUtf8(kEvents[i])
                                                                   : QString();
    }
    const QString text = event.toString();
    for (const char* known : kEvents)
        if (text == QString::fromUtf8(known)) return text;
    return QString();
}

TaskMsgItem::TaskMsgItem(const MessageEntry& e, QWidget* parent) : BaseItem(e, parent) {
    const QJsonObject o = QJsonDocument::fromJson(e.msg.contentJson.toUtf8()).object();
    taskId_ = o.value(QStringLiteral("taskId")).toVariant().toString();
    projectId_ = o.value(QStringLiteral("projectId")).toVariant().toString();
    const QString sender = e.msg.senderName.isEmpty() ? e.msg.senderId : e.msg.senderName;
    const QString end = o.value(QStringLiteral("endTime")).toString();

    card_ = new QWidget(this);
    auto* layout = new QVBoxLayout(card_);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    const QString event = eventText(o.value(QStringLiteral("event")));
    layout->addWidget(plain(event.isEmpty() ? sender : sender + QLatin1Char(' ') + event, card_,
                            "QLabel{color:#888888;font-size:12px;}"));
    QLabel* title = plain(o.value(QStringLiteral("title")).toString(), card_,
                          "QLabel{font-weight:bold;font-size:14px;}");
    title->setWordWrap(true);
    layout->addWidget(title);
    layout->addWidget(plain(
        QStringLiteral("截止日期：") + (end.isEmpty() ? QStringLiteral("无期限") : end), card_));
    layout->addWidget(
        plain(QStringLiteral("执行人：") + o.value(QStringLiteral("executor")).toString(), card_));
    auto* row = new QHBoxLayout;
    row->addWidget(plain(o.value(QStringLiteral("isRead")).toBool() ? QStringLiteral("已读")
                                                                    : QStringLiteral("未读"),
                         card_, "QLabel{color:#53B353;font-size:12px;}"));
    row->addStretch();
    auto* open = new QPushButton(QStringLiteral("任务说明"), card_);
    open->setCursor(Qt::PointingHandCursor);
    open->setStyleSheet(QStringLiteral(
        "QPushButton{background-color:transparent;color:#1589d3;border:0px groove gray;}"
        "QPushButton:hover{color: #23527c;}"));
    connect(open, &QPushButton::clicked, this, &TaskMsgItem::showSidebarSlot);
    row->addWidget(open);
    layout->addLayout(row);
}

void TaskMsgItem::createSidebarSlot() {
    emit Manager::instance()->createTaskSignal(CardUrls::createTask(projectId_));
}

void TaskMsgItem::showSidebarSlot() {
    if (taskId_.isEmpty()) return createSidebarSlot();
    emit Manager::instance()->openTaskSignal(CardUrls::task(taskId_));
}

void TaskMsgItem::resizeEvent(QResizeEvent* event) {
    BaseItem::resizeEvent(event);
    card_->setGeometry(contentRect());
}

}  // namespace qx_output
