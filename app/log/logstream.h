#pragma once

#include <QString>

class Logger;

// Gathers one log line and hands it to its logger when it goes out of scope. A stream
// without a logger swallows what it is given.
class LogStream {
public:
    LogStream(Logger* logger, const QString& initialText = QString());
    ~LogStream();
    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;

    LogStream& operator<<(const QString& text);
    LogStream& operator<<(const char* text);
    LogStream& operator<<(qint64 value);
    LogStream& operator<<(quint64 value);
    LogStream& operator<<(int value);
    LogStream& operator<<(bool value);

    const QString& text() const { return text_; }

private:
    Logger* logger_;
    QString text_;
};

// One line to the process-wide log: QX_LOG << "text" << 42;
#define QX_LOG LogStream(&Logger::instance())
