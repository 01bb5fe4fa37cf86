#include "sdk/endpoint_list.h"

#include <QStringList>

namespace {

bool readPort(const QString& text, int* port) {
    bool ok = false;
    const int value = text.toInt(&ok);
    if (!ok || value <= 0 || value > 65535) return false;
    *port = value;
    return true;
}

}  // namespace

EndpointList EndpointList::parse(const QString& text, int defaultPort, QString* error) {
    EndpointList list;
    const auto fail = [&](const QString& why) {
        if (error) *error = why;
        return EndpointList();
    };
    if (defaultPort <= 0 || defaultPort > 65535)
        return fail(QStringLiteral("the default port %1 is not a port").arg(defaultPort));
    const QStringList entries = text.split(QLatin1Char(','));
    for (const QString& raw : entries) {
        const QString entry = raw.trimmed();
        if (entry.isEmpty()) return fail(QStringLiteral("an empty entry in \"%1\"").arg(text));
        Endpoint e;
        e.port = defaultPort;
        QString portText;
        if (entry.startsWith(QLatin1Char('['))) {
            const int close = entry.indexOf(QLatin1Char(']'));
            if (close < 2)
                return fail(QStringLiteral("\"%1\" opens a bracket it does not close").arg(entry));
            e.host = entry.mid(1, close - 1);
            const QString rest = entry.mid(close + 1);
            if (!rest.isEmpty()) {
                if (!rest.startsWith(QLatin1Char(':')))
                    return fail(QStringLiteral("\"%1\" has text after the address").arg(entry));
                portText = rest.mid(1);
            }
        } else if (entry.count(QLatin1Char(':')) == 1) {
            e.host = entry.section(QLatin1Char(':'), 0, 0);
            portText = entry.section(QLatin1Char(':'), 1);
        } else if (entry.contains(QLatin1Char(':'))) {
            return fail(QStringLiteral("\"%1\": put an IPv6 address in brackets").arg(entry));
        } else {
            e.host = entry;
        }
        if (e.host.isEmpty() || e.host.contains(QLatin1Char(' ')))
            return fail(QStringLiteral("\"%1\" has no host").arg(entry));
        if (!portText.isNull() && !readPort(portText, &e.port))
            return fail(QStringLiteral("\"%1\": %2 is not a port").arg(entry, portText));
        list.endpoints_.append(e);
    }
    if (error) error->clear();
    return list;
}

const EndpointList::Endpoint& EndpointList::current() const {
    static const Endpoint none{};
    return endpoints_.isEmpty() ? none : endpoints_.at(at_);
}

bool EndpointList::advance() {
    if (endpoints_.isEmpty()) return true;
    at_ = (at_ + 1) % int(endpoints_.size());
    return at_ == 0;
}

QString EndpointList::toString() const {
    QStringList parts;
    for (const Endpoint& e : endpoints_) {
        const QString host = e.host.contains(QLatin1Char(':'))
                                 ? QLatin1Char('[') + e.host + QLatin1Char(']')
                                 : e.host;
        parts << host + QLatin1Char(':') + QString::number(e.port);
    }
    return parts.join(QLatin1Char(','));
}
