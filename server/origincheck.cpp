#include "origincheck.h"

#include <QUrl>

#include "apihelpers.h"

OriginCheck::OriginCheck(const QString& publicUrl, bool tls)
    : publicOrigin_(originOf(publicUrl)), tls_(tls) {}

bool OriginCheck::changesState(const httplib::Request& req) {
    if (req.method != "GET" && req.method != "HEAD") return true;
    if (req.path != "/work/editProj.htm") return false;
    const QString m = api::param(req, "m");
    return m == QLatin1String("delProj") || m == QLatin1String("exitPro");
}

QString OriginCheck::originOf(const QString& url) {
    const QUrl u(url);
    const QString scheme = u.scheme().toLower();
    if (!u.isValid() || u.host().isEmpty() ||
        (scheme != QLatin1String("http") && scheme != QLatin1String("https")))
        return QString();
    const int port = u.port(scheme == QLatin1String("https") ? 443 : 80);
    return scheme + QStringLiteral("://") + u.host().toLower() + QLatin1Char(':') +
           QString::number(port);
}

QString OriginCheck::foreignOrigin(const httplib::Request& req) const {
    std::string named = req.get_header_value("Origin");
    if (named.empty()) named = req.get_header_value("Referer");
    if (named.empty()) return QString();
    const QString claimed = QString::fromStdString(named);
    // An opaque origin ("null": a sandboxed frame, a file) is no page of ours.
    const QString origin = originOf(claimed);
    if (origin.isEmpty()) return claimed.left(200);
    const QString host = QString::fromStdString(req.get_header_value("Host"));
    const QString own =
        host.isEmpty()
            ? QString()
            : originOf((tls_ ? QStringLiteral("https://") : QStringLiteral("http://")) + host);
    if (origin == own || (!publicOrigin_.isEmpty() && origin == publicOrigin_)) return QString();
    return origin;
}
