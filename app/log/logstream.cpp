#include "logstream.h"

#include "logger.h"

LogStream::LogStream(Logger* logger, const QString& initialText)
    : logger_(logger), text_(initialText) {}

LogStream::~LogStream() {
    if (logger_) logger_->write(text_);
}

LogStream& LogStream::operator<<(const QString& text) {
    text_ += text;
    return *this;
}

LogStream& LogStream::operator<<(const char* text) {
    text_ += QString::fromUtf8(text);
    return *this;
}

LogStream& LogStream::operator<<(qint64 value) {
    text_ += QString::number(value);
    return *this;
}

LogStream& LogStream::operator<<(quint64 value) {
    text_ += QString::number(value);
    return *this;
}

LogStream& LogStream::operator<<(int value) {
    text_ += QString::number(value);
    return *this;
}

LogStream& LogStream::operator<<(bool value) {
    text_ += value ? QStringLiteral("true") : QStringLiteral("false");
    return *this;
}
