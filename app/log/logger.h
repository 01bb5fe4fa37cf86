#pragma once

#include <QDate>
#include <QDateTime>
#include <QFile>
#include <QMutex>
#include <QString>

#include <functional>

// The client's own diagnostic log: one plain-text file per local calendar day under
// <Documents>/Quelix/Log, one line per write, never read back. Today's file stays open
// and is swapped for a new one when the local date changes; each line goes out in one
// unbuffered write, so a crash the next moment never leaves half a line or a line behind.
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
    // Opens the file for `day` unless it is the one already open; false if it cannot.
    bool openFor(const QDate& day);

    QString stamp(QDate* day);

    QMutex mutex_;
    QFile file_;
    QDate fileDay_;
    bool systemClock_;  // no clock given: the fast time stamps below apply
    FolderSource documentsFolder_;
    Clock clock_;
    qint64 stampSecond_ = -1;
    QDate stampDay_;
    QString stampPrefix_;
};
