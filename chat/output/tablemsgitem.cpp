#include "tablemsgitem.h"

#include <QHBoxLayout>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "cardurls.h"
#include "manager.h"
#include "uifont.h"

namespace qx_output {

namespace {
QLabel* plain(const QString& text, QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText);
    label->setText(text);
    return label;
}
QString number(const QJsonValue& v) { return v.toVariant().toString(); }
}  // namespace

TableMsgItem::TableMsgItem(const MessageEntry& e, QWidget* parent) : BaseItem(e, parent) {
    const QJsonObject o = QJsonDocument::fromJson(e.msg.contentJson.toUtf8()).object();
    projectId_ = number(o.value(QStringLiteral("projectId")));
    card_ = new QWidget(this);
    auto* layout = new QVBoxLayout(card_);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    auto* top = new QHBoxLayout;
    QLabel* title = plain(o.value(QStringLiteral("title")).toString(), card_);
    title->setStyleSheet(
        UiFont::scaled(QStringLiteral("QLabel{font-weight:bold;font-size:14px;}")));
    top->addWidget(title, 1);
    const QString exceed = number(o.value(QStringLiteral("exceed")));
    if (!exceed.isEmpty() && exceed != QLatin1String("0")) {
        QLabel* status = plain(QStringLiteral("超额完成%1").arg(exceed), card_);
        status->setStyleSheet(
            QStringLiteral("QLabel{background-color:#98D798;color:\t#FFFFFF;border-radius:3px;"
                           "border:0px groove gray;}"));
        top->addWidget(status);
    }
    layout->addLayout(top);
    layout->addWidget(
        plain(QStringLiteral("目标总数：") + number(o.value(QStringLiteral("total"))), card_));
    layout->addWidget(
        plain(QStringLiteral("目标达成率：") + number(o.value(QStringLiteral("rate"))), card_));
    layout->addWidget(plain(QStringLiteral("超额数量") + QLatin1Char(' ') +
                                (exceed.isEmpty() ? QStringLiteral("0") : exceed),
                            card_));
    auto* link = new QPushButton(QStringLiteral("查看目标表"), card_);
    link->setCursor(Qt::PointingHandCursor);
    link->setStyleSheet(QStringLiteral(
        "QPushButton{background-color:transparent;color:#1589d3;border:0px groove gray;}"
        "QPushButton:hover{color: #23527c; cursor:pointer;}"));
    connect(link, &QPushButton::clicked, this, &TableMsgItem::openLink);
    layout->addWidget(link, 0, Qt::AlignRight);
}

void TableMsgItem::openLink() {
    emit Manager::instance()->openTaskSignal(CardUrls::goals(projectId_));
}

void TableMsgItem::resizeEvent(QResizeEvent* event) {
    BaseItem::resizeEvent(event);
    card_->setGeometry(contentRect());
}

}  // namespace qx_output
