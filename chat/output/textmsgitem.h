#pragma once

#include <QPixmap>

#include "baseitem.h"

class QTextDocument;

namespace qx_output {

class TextItemEdit;

// A text message: the sender's text with emoticon pictures and highlighted mentions. The
// row paints its text itself; the read-only editor that lets the user select and copy is
// put over it once the mouse comes near, so rows that are only looked at stay light.
class TextMsgItem : public BaseItem {
    Q_OBJECT
public:
    TextMsgItem(const MessageEntry& entry, QWidget* parent = nullptr);
    void setContent(const QString& html);
    // The editor over the text, made on first use.
    TextItemEdit* edit();
    bool hasEdit() const { return edit_ != nullptr; }

public slots:
    void OnAnimate(int frame);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void enterEvent(QEvent* event) override;

private:
    QString html_;
    QTextDocument* doc_;
    QPixmap drawn_;  // the text as last drawn: rows repaint often as the list scrolls
    TextItemEdit* edit_ = nullptr;
};

}  // namespace qx_output
