#pragma once

#include "baseitem.h"

namespace qx_output {

class TextItemEdit;

// A text message: the sender's text with emoticon pictures and highlighted mentions.
class TextMsgItem : public BaseItem {
    Q_OBJECT
public:
    TextMsgItem(const MessageEntry& entry, QWidget* parent = nullptr);
    void setContent(const QString& html);
    TextItemEdit* edit() const { return edit_; }

public slots:
    void OnAnimate(int frame);

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    TextItemEdit* edit_;
};

}  // namespace qx_output
