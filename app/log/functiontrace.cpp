#include "functiontrace.h"

#include "logger.h"

FunctionTrace::FunctionTrace(Logger* logger, const QString& qualifiedName)
    : logger_(logger), name_(qualifiedName) {
    if (logger_) logger_->write(QStringLiteral("--> ") + name_);
}

FunctionTrace::~FunctionTrace() {
    if (logger_) logger_->write(QStringLiteral("<-- ") + name_);
}

QString FunctionTrace::qualifiedName(const char* prettyFunction) {
    QString s = QString::fromLatin1(prettyFunction);
    // Cut the parameter list: the first '(' that is not part of "operator()".
    int open = s.indexOf(QLatin1String("operator()"));
    open = s.indexOf(QLatin1Char('('), open >= 0 ? open + 10 : 0);
    if (open >= 0) s.truncate(open);
    // Cut the return type: the name starts after the last space outside template brackets.
    int depth = 0;
    for (int i = s.size() - 1; i >= 0; --i) {
        const QChar c = s.at(i);
        if (c == QLatin1Char('>'))
            ++depth;
        else if (c == QLatin1Char('<'))
            --depth;
        else if (c == QLatin1Char(' ') && depth == 0)
            return s.mid(i + 1);
    }
    return s;
}
