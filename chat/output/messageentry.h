#pragma once

#include <QListWidgetItem>
#include <QSize>
#include <QString>

#include "basemsg.h"

namespace qx_output {

// One row of an output list: what the row shows, kept without any widget so that a long
// history costs little. The row's widget is built from it while the row is in view.
struct MessageEntry {
    enum Kind { Separator, Tip, Text, Image, File, Task, Table, Card };
    Kind kind = Tip;
    BaseMsg::MMessage msg;
    QString html;   // text rows: the prepared rich text; tip rows: the line
    QSize content;  // the size of the bubble's content at the current width
    bool showName = false;
    bool loading = false;  // a picture still on its way
    bool resend = false;   // tip rows: a message that was not sent; msg is that message
    int measuredFor = 0;   // text rows: the line width the content size was taken at
};

class EntryItem : public QListWidgetItem {
public:
    explicit EntryItem(const MessageEntry& e) : QListWidgetItem(nullptr, UserType + 1), entry(e) {}
    MessageEntry entry;

    // The list asks every row for its size each time it lays itself out; answering from a
    // member spares it a search through the item's values.
    QVariant data(int role) const override {
        return role == Qt::SizeHintRole ? QVariant(size_) : QListWidgetItem::data(role);
    }
    void setData(int role, const QVariant& value) override {
        if (role == Qt::SizeHintRole) size_ = value.toSize();
        QListWidgetItem::setData(role, value);
    }

private:
    QSize size_;
};

}  // namespace qx_output
