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
    drawn_ = QPixmap();
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
    const QRect r = contentRect();
    const qreal ratio = devicePixelRatioF();
    if (drawn_.isNull() || drawn_.size() != r.size() * ratio) {
        // Shaping text is the costly part of drawing it: done once, then copied.
        drawn_ = QPixmap(r.size() * ratio);
        drawn_.setDevicePixelRatio(ratio);
        drawn_.fill(bubbleColour());
        QPainter cache(&drawn_);
        doc_->drawContents(&cache, QRectF(0, 0, r.width(), r.height()));
    }
    QPainter p(this);
    p.drawPixmap(r.topLeft(), drawn_);
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
