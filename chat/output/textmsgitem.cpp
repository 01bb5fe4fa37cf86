#include "textmsgitem.h"

#include <QPainter>
#include <QTextDocument>

#include "itemsizer.h"
#include "textitemedit.h"

namespace qx_output {

TextMsgItem::TextMsgItem(const MessageEntry& e, QWidget* parent) : BaseItem(e, parent) {
    doc_ = new QTextDocument(this);
    doc_->setDocumentMargin(0);
    doc_->setUndoRedoEnabled(false);
    doc_->setDefaultFont(ItemSizer::textFont());
    setContent(e.html);
}

void TextMsgItem::setContent(const QString& html) {
    html_ = html;
    doc_->setHtml(html);
    doc_->setTextWidth(content_.width());
    if (edit_) {
        edit_->setHtml(html);
        edit_->document()->setTextWidth(content_.width());
    }
    update();
}

TextItemEdit* TextMsgItem::edit() {
    if (!edit_) {
        edit_ = new TextItemEdit(this);
        edit_->setHtml(html_);
        edit_->document()->setTextWidth(content_.width());
        edit_->setGeometry(contentRect());
        edit_->show();
        update(contentRect());  // the editor draws the text from now on
    }
    return edit_;
}

void TextMsgItem::OnAnimate(int) {
    update(contentRect());
    if (edit_) edit_->viewport()->update();
}

void TextMsgItem::paintEvent(QPaintEvent* event) {
    BaseItem::paintEvent(event);
    if (edit_) return;
    QPainter p(this);
    const QRect r = contentRect();
    p.translate(r.topLeft());
    doc_->drawContents(&p, QRectF(0, 0, r.width(), r.height()));
}

void TextMsgItem::resizeEvent(QResizeEvent* event) {
    BaseItem::resizeEvent(event);
    if (edit_) edit_->setGeometry(contentRect());
}

void TextMsgItem::enterEvent(QEvent* event) {
    BaseItem::enterEvent(event);
    edit();
}

}  // namespace qx_output
