#pragma once

#include <httplib.h>

#include <QString>
#include <QStringList>

// Whether a request that changes something comes from the back end's own pages, or from no
// page at all (the desktop client names none). A browser names the page behind a request in
// Origin, or failing that in Referer; a page of another site must never make a signed-in
// colleague's browser, or the client's web sidebar, change anything.
class OriginCheck {
public:
    // `publicUrl`: where colleagues reach the back end, which behind a proxy differs from the
    // Host the back end sees; `tls`: whether the back end itself speaks HTTPS.
    OriginCheck(const QString& publicUrl, bool tls);

    // Whether the request changes state: every POST, and the two project changes the client
    // sends by GET (leaving and dissolving a project).
    static bool changesState(const httplib::Request& req);
    // Empty when the request may go on; otherwise the foreign origin it names, for the log.
    QString foreignOrigin(const httplib::Request& req) const;

private:
    // scheme://host:port in lower case, the port always written; empty for no usable URL.
    static QString originOf(const QString& url);

    QString publicOrigin_;
    bool tls_;
};
