#include "tipmsgitem.h"

#include <QHBoxLayout>
#include <QLabel>

namespace qx_output {

TipMsgItem::TipMsgItem(const QString& text, QWidget* parent) : QWidget(parent) {
    label_ = new QLabel(this);
    label_->setTextFormat(Qt::PlainText);
    label_->setText(text);
    label_->setAlignment(Qt::AlignCenter);
    label_->setStyleSheet(QStringLiteral("QLabel{font-family:%1;font-size:%2px;color:#999999;"
                                         "background-color:#E6E9EC;border-radius:0px;"
                                         "padding:2px 8px;}")
                              .arg(font().family())
                              .arg(12));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 4, 0, 4);
    layout->addStretch();
    layout->addWidget(label_);
    layout->addStretch();
}

QString TipMsgItem::text() const { return label_->text(); }

}  // namespace qx_output
