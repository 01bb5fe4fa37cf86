#include "taskmsgitem.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "cardurls.h"
#include "itemsizer.h"
#include "manager.h"
#include "plaintext.h"
#include "taskreadflags.h"
#include "uifont.h"

namespace qx_output {

namespace {
const char* const kEvents[] = {"创建了任务",    "指派给了",      "回复了任务",    "取消了任务",
                               "修改为 待处理", "修改为 处理中", "修改为 暂停中", "修改为 已完成"};

QLabel* plain(const QString& text, QWidget* parent, const QString& style = QString()) {
    auto* label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText);
    label->setText(text);
    if (!style.isEmpty()) label->setStyleSheet(style);
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
    // Cards of task events come from the back end's account; the one who acted is named in
    // the card itself.
    const QString actor = o.value(QStringLiteral("userName")).toString();
    const QString sender = !actor.isEmpty()             ? actor
                           : e.msg.senderName.isEmpty() ? e.msg.senderId
                                                        : e.msg.senderName;
    const QString end = o.value(QStringLiteral("endTime")).toString();

    card_ = new QWidget(this);
    auto* layout = new QVBoxLayout(card_);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    const QString event = eventText(o.value(QStringLiteral("event")));
    QString line = event.isEmpty() ? sender : sender + QLatin1Char(' ') + event;
    // "指派给了" reads as a sentence only with whom the task went to.
    const QString executor = o.value(QStringLiteral("executor")).toString();
    if (event == QString::fromUtf8(kEvents[1]) && !executor.isEmpty())
        line += QLatin1Char(' ') + executor;
    // A reply's first words, on the card's one status line (the page has the whole reply).
    const QString reply = o.value(QStringLiteral("reply")).toString().simplified();
    if (!reply.isEmpty()) line += QStringLiteral("：") + reply;
    QLabel* status = plain(QString(), card_,
                           UiFont::scaled(QStringLiteral("QLabel{color:#888888;font-size:12px;}")));
    status->setText(status->fontMetrics().elidedText(
        line, Qt::ElideRight, ItemSizer::card(ItemSizer::kTaskCard).width() - 8));
    status->setToolTip(plaintext::toolTip(reply));
    layout->addWidget(status);
    QLabel* title =
        plain(o.value(QStringLiteral("title")).toString(), card_,
              UiFont::scaled(QStringLiteral("QLabel{font-weight:bold;font-size:14px;}")));
    title->setWordWrap(true);
    layout->addWidget(title);
    layout->addWidget(plain(
        QStringLiteral("截止日期：") + (end.isEmpty() ? QStringLiteral("无期限") : end), card_));
    layout->addWidget(plain(QStringLiteral("执行人：") + executor, card_));
    auto* row = new QHBoxLayout;
    // The viewer's own flag from the back end; until it is known, what the card says.
    TaskReadFlags* flags = Manager::instance()->readFlags();
    const int known = flags->flag(taskId_);
    readLabel_ = plain(QString(), card_,
                       UiFont::scaled(QStringLiteral("QLabel{color:#53B353;font-size:12px;}")));
    readLabel_->setObjectName(QStringLiteral("taskReadState"));
    setRead(known < 0 ? o.value(QStringLiteral("isRead")).toBool() : known == 1);
    connect(flags, &TaskReadFlags::changed, this, [this](const QString& taskId, bool read) {
        if (taskId == taskId_) setRead(read);
    });
    row->addWidget(readLabel_);
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
    // Opening the page marks it read on the back end, for this user.
    Manager::instance()->readFlags()->markRead(taskId_);
    emit Manager::instance()->openTaskSignal(CardUrls::task(taskId_));
}

void TaskMsgItem::setRead(bool read) {
    readLabel_->setText(read ? QStringLiteral("已读") : QStringLiteral("未读"));
}

void TaskMsgItem::resizeEvent(QResizeEvent* event) {
    BaseItem::resizeEvent(event);
    card_->setGeometry(contentRect());
}

}  // namespace qx_output
