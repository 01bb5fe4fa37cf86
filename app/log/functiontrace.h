#pragma once

#include <QString>

class Logger;

// Writes "--> Class::function" when built and "<-- Class::function" when it goes out of
// scope, so a trace of the log shows which calls enclosed which lines.
class FunctionTrace {
public:
    FunctionTrace(Logger* logger, const QString& qualifiedName);
    ~FunctionTrace();
    FunctionTrace(const FunctionTrace&) = delete;
    FunctionTrace& operator=(const FunctionTrace&) = delete;

    // "void OpenIMManager::showChatMsg(bool, const QString&)" -> "OpenIMManager::showChatMsg"
    static QString qualifiedName(const char* prettyFunction);

private:
    Logger* logger_;
    QString name_;
};

#define QX_TRACE_FUNCTION()                             \
    FunctionTrace qxFunctionTrace_(&Logger::instance(), \
                                   FunctionTrace::qualifiedName(__PRETTY_FUNCTION__))
