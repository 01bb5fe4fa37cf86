#include "personalcarditem.h"

#include <QJsonDocument>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "basemsg.h"
#include "colleague.h"
#include "directorystore.h"
#include "uifont.h"

namespace qx_output {

namespace {
QLabel* plain(const QString& text, QWidget* parent, const QString& style) {
    auto* label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText);
    label->setText(text);
    label->setStyleSheet(style);
    return label;
}
}  // namespace

QString PersonalCardItem::contentFor(const QString& userId) {
    const Colleague* c = DirectoryStore::instance().colleague(userId);
    if (!c) return QString();
    const QJsonObject o{{QStringLiteral("msgType"), int(BaseMsg::CustomCard)},
                        {QStringLiteral("userId"), userId},
                        {QStringLiteral("name"), c->displayName()},
                        {QStringLiteral("deptName"), c->deptName()}};
    return QString::fromUtf8(QJsonDocument(o).toJson(QJsonDocument::Compact));
}

QString PersonalCardItem::summaryFor(const QString& userId) {
    const Colleague* c = DirectoryStore::instance().colleague(userId);
    return QStringLiteral("[个人名片] ") + (c ? c->displayName() : userId);
}

PersonalCardItem::PersonalCardItem(const MessageEntry& e, QWidget* parent) : BaseItem(e, parent) {
    const QJsonObject o = QJsonDocument::fromJson(e.msg.contentJson.toUtf8()).object();
    userId_ = o.value(QStringLiteral("userId")).toVariant().toString();
    // The receiver's directory knows the colleague better than the text that came along.
    const Colleague* known = DirectoryStore::instance().colleague(userId_);
    const QString name = known ? known->displayName() : o.value(QStringLiteral("name")).toString();
    const QString dept = known ? known->deptName() : o.value(QStringLiteral("deptName")).toString();

    card_ = new QWidget(this);
    auto* layout = new QVBoxLayout(card_);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    layout->addWidget(
        plain(QStringLiteral("个人名片"), card_,
              UiFont::scaled(QStringLiteral("QLabel{color:#888888;font-size:12px;}"))));
    layout->addWidget(plain(
        name, card_, UiFont::scaled(QStringLiteral("QLabel{font-weight:bold;font-size:14px;}"))));
    layout->addWidget(plain(dept, card_, QStringLiteral("QLabel{color:#666;}")));
    open_ = new QPushButton(QStringLiteral("查看名片"), card_);
    open_->setCursor(Qt::PointingHandCursor);
    open_->setStyleSheet(QStringLiteral(
        "QPushButton{background-color:transparent;color:#1589d3;border:0px groove gray;"
        "text-align:left;} QPushButton:hover{color: #23527c;}"));
    // A card of someone this client's directory does not hold has nothing to open.
    open_->setEnabled(known);
    layout->addWidget(open_);
    connect(open_, &QPushButton::clicked, this, [this] {
        if (!userId_.isEmpty()) emit openCardSignal(userId_);
    });
}

void PersonalCardItem::resizeEvent(QResizeEvent* event) {
    BaseItem::resizeEvent(event);
    card_->setGeometry(contentRect());
}

}  // namespace qx_output
