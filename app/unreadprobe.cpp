#include "unreadprobe.h"

#include <QByteArray>
#include <QList>

#include <algorithm>
#include <cstdio>

UnreadProbe::UnreadProbe() {
    for (const QByteArray& part : qgetenv("QUELIX_UNREAD_PROBE").split(',')) {
        bool ok = false;
        const int n = part.trimmed().toInt(&ok);
        if (ok && n > 0) targets_.push_back(n);
    }
    std::sort(targets_.begin(), targets_.end());
}

void UnreadProbe::totalChanged(int total) {
    static UnreadProbe probe;
    while (!probe.targets_.empty() && total >= probe.targets_.front()) {
        std::fprintf(stderr, "unread-reached %d\n", probe.targets_.front());
        std::fflush(stderr);
        probe.targets_.erase(probe.targets_.begin());
    }
}

bool UnreadProbe::watchesTalkList() {
    static const bool on = qEnvironmentVariableIsSet("QUELIX_TALK_PROBE");
    return on;
}

void UnreadProbe::talkList(int total, const QString& title, const QStringList& rows) {
    if (!watchesTalkList()) return;
    std::fprintf(stderr, "talk-list %d %s|%s\n", total, qPrintable(title),
                 qPrintable(rows.join(QLatin1Char(' '))));
    std::fflush(stderr);
}
