#include "tipmsgitem.h"

#include <QHBoxLayout>
#include <QLabel>

#include "uifont.h"

namespace qx_output {

TipMsgItem::TipMsgItem(const QString& text, QWidget* parent) : QWidget(parent) {
    label_ = new QLabel(this);
    label_->setTextFormat(Qt::PlainText);
    label_->setText(text);
    label_->setAlignment(Qt::AlignCenter);
    // Grey on a light band, by palette: there can be many tip rows.
    QFont f = label_->font();
    f.setPixelSize(UiFont::px(12));
    label_->setFont(f);
    QPalette p = label_->palette();
    p.setColor(QPalette::WindowText, QColor(0x99, 0x99, 0x99));
    p.setColor(QPalette::Window, QColor(0xE6, 0xE9, 0xEC));
    label_->setPalette(p);
    label_->setAutoFillBackground(true);
    label_->setContentsMargins(8, 2, 8, 2);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 4, 0, 4);
    layout->addStretch();
    layout->addWidget(label_);
    layout->addStretch();
}

TipMsgItem::TipMsgItem(const QString& text, const QString& action, QWidget* parent)
    : TipMsgItem(text, parent) {
    // Our own markup around escaped text: the reason may come from the server.
    label_->setTextFormat(Qt::RichText);
    label_->setText(text.toHtmlEscaped() +
                    QStringLiteral(" <a href=\"action\">%1</a>").arg(action.toHtmlEscaped()));
    label_->setTextInteractionFlags(Qt::LinksAccessibleByMouse | Qt::LinksAccessibleByKeyboard);
    connect(label_, &QLabel::linkActivated, this, &TipMsgItem::activated);
}

QString TipMsgItem::text() const { return label_->text(); }

}  // namespace qx_output
