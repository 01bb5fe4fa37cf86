#include "textmsgitem.h"

#include "textitemedit.h"

namespace qx_output {

TextMsgItem::TextMsgItem(const MessageEntry& e, QWidget* parent) : BaseItem(e, parent) {
    edit_ = new TextItemEdit(this);
    setContent(e.html);
}

void TextMsgItem::setContent(const QString& html) {
    edit_->setHtml(html);
    edit_->document()->setTextWidth(content_.width());
}

void TextMsgItem::OnAnimate(int) {
    // Emoticon pictures are still images today; an animated one repaints its row.
    edit_->viewport()->update();
}

void TextMsgItem::resizeEvent(QResizeEvent* event) {
    BaseItem::resizeEvent(event);
    edit_->setGeometry(contentRect());
}

}  // namespace qx_output
