#pragma once

#include <QPointer>

#include "baseitem.h"

class QLabel;
class QProgressBar;
class QPushButton;

namespace qx_output {

class FileTransfer;

// A file message: icon by extension, name and size, the transfer's progress with a cancel
// button, and once the file is here, open and show-in-folder. The transfer itself lives
// in the manager, so scrolling the row away and back loses nothing.
class FileMsgItem : public BaseItem {
    Q_OBJECT
public:
    FileMsgItem(const MessageEntry& entry, QWidget* parent = nullptr);

    // The transfer key of a message's file ("up:<id>", "down:<id>", or the local path).
    static QString transferKey(const MessageEntry& entry);
    // The style of the icon for a file name.
    static QString iconStyle(const QString& fileName);
    static QString sizeText(qint64 bytes);

    QString statusText() const;
    FileTransfer* transfer() const { return transfer_; }

public slots:
    // Download, or open once downloaded.
    void operationOfLoad();
    void cancelUpLoadSlot();
    void cancelDownLoadSlot();
    void openFolder();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void refresh();
    void placeChildren();
    bool openLocal(bool folder);

    QString fileId_;
    QString fileName_;
    qint64 fileSize_ = 0;
    QPointer<FileTransfer> transfer_;
    QLabel* icon_;
    QLabel* name_;
    QLabel* status_;
    QProgressBar* progress_;
    QPushButton* action_;
    QPushButton* cancel_;
    QPushButton* folder_;
};

}  // namespace qx_output
