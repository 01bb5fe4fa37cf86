#pragma once

#include <QDateTime>
#include <QMutex>
#include <QString>

#include <functional>

// The client's own diagnostic log: one plain-text file per local calendar day under
// <Documents>/Quelix/Log, one line per write, never read back. The file is opened and
// closed for every line so that it rotates at midnight without state and is complete
// after a crash.
class Logger {
public:
    using Clock = std::function<QDateTime()>;
    using FolderSource = std::function<QString()>;

    // The process-wide logger, built on first use and kept until exit.
    static Logger& instance();

    // Tests build their own logger with an injected clock and documents folder.
    explicit Logger(FolderSource documentsFolder = {}, Clock clock = {});
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    // Writes "hh:mm:ss.zzz <text>\r\n" to today's file and echoes the line to the debug
    // output. Returns whether the line reached the file.
    bool write(const QString& text);

    QString logFolder() const;
    QString logFilePath() const;

    static QString defaultDocumentsFolder();

private:
    QMutex mutex_;
    FolderSource documentsFolder_;
    Clock clock_;
};
