#include "taskalertpolicy.h"

#include <QVariant>

#include "userconfig_t.h"

namespace {
QString text(const QJsonObject& o, const char* key) {
    return o.value(QLatin1String(key)).toVariant().toString();
}
}  // namespace

bool TaskAlertPolicy::alerts(const QJsonObject& card, const quelix::userconfig_t& s,
                             const QString& ownId, bool direct) {
    if (!ownId.isEmpty() && text(card, "userId") == ownId) return false;
    const QJsonValue event = card.value(QStringLiteral("event"));
    // The status lines as numbers 0 to 7 (created, assigned, replied, cancelled, then the
    // four states); anything else is alerted like any message.
    if (!event.isDouble()) return true;
    switch (event.toInt(-1)) {
        case 0:  // created
        case 3:  // cancelled
            return s.createAndDelete;
        case 1:  // assigned
            return (direct && !ownId.isEmpty() && text(card, "executorId") == ownId) || s.dispose;
        case 2:
            return s.reply;
        case 4:  // back to waiting
        case 5:  // being worked on
            return s.dispose;
        case 6:
            return s.suspend;
        case 7:
            return s.complete;
        default:
            return true;
    }
}
