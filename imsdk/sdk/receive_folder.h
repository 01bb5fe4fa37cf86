#pragma once

#include <QString>

// Where a received file may be written: always directly inside the receive folder, under
// a cleaned-up form of the name the sender chose, never over an existing file.
class ReceiveFolder {
public:
    explicit ReceiveFolder(QString folder);

    // The sender's name reduced to a plain file name: no folders, no "..", no characters
    // that file systems reject; "file" when nothing is left.
    static QString cleanName(const QString& senderName);
    // A path in the folder for `senderName` that does not exist yet ("a (1).png" after
    // "a.png"); empty when the folder cannot be made.
    QString freePath(const QString& senderName) const;
    const QString& path() const { return folder_; }

private:
    QString folder_;
};
