#pragma once

#include <QByteArray>
#include <QString>

#include <memory>

class QSaveFile;

// Attachments on disk. Files are stored under names we make up (random hex), so nothing a
// client sends ever becomes part of a path; the client's file name is only kept, cleaned,
// as the name offered on download.
class FileStore {
public:
    FileStore(const QString& folder, qint64 maxBytes);

    qint64 maxBytes() const { return maxBytes_; }
    bool isReady() const;

    // The name as it may be shown and offered again: no folders, no control or reserved
    // characters, not "." or "..", at most 200 characters. Empty when nothing usable is left.
    static QString sanitizeName(const QString& name);

    // Stores the bytes; returns the stored name, empty on failure.
    QString store(const QByteArray& data);
    // A file to receive under a fresh stored name: written to a temporary file and only there
    // under that name once committed; discarded (removed) when destroyed uncommitted. Null
    // when the folder cannot be written.
    std::unique_ptr<QSaveFile> begin(QString* storedName);
    bool remove(const QString& storedName);
    // The path of a stored name; empty unless the name is one store() could have made.
    QString pathOf(const QString& storedName) const;

private:
    QString folder_;
    qint64 maxBytes_;
};
