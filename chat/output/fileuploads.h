#pragma once

#include <QHash>
#include <QObject>
#include <QString>

#include <functional>

#include "basemsg.h"

class QWidget;

namespace qx_output {

class EntryItem;

// Our own files going up from one conversation page: the row shown while a file uploads
// to the back end, the file message sent once the back end has it, and the echo of that
// message matched to the row, so the file is listed once.
class FileUploads : public QObject {
    Q_OBJECT
public:
    // Shows the row of a message in the page's list.
    using AddRow = std::function<void(const BaseMsg::MMessage&)>;
    // The page's row of a message id, or null.
    using RowOf = std::function<EntryItem*(quint64 msgId)>;

    // `page` owns the uploads and is the parent of what they tell the user.
    FileUploads(const QString& conversationId, bool isTribe, QWidget* page, AddRow addRow,
                RowOf rowOf);

    // Shows our own file while it uploads; sends the file message once it is up.
    void upload(const QString& path);
    // The row of our upload that `msg` (our file message coming back) is the echo of.
    EntryItem* rowOfEcho(const BaseMsg::MMessage& msg) const;

private:
    QString id_;
    bool isTribe_;
    QWidget* page_;
    AddRow addRow_;
    RowOf rowOf_;
    QHash<QString, EntryItem*> byFileId_;  // uploaded rows, by the back end's file id
    quint64 nextLocalId_ = 1;
};

}  // namespace qx_output
