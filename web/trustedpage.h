#pragma once

#include <QWebEnginePage>

// A web page that takes a server's certificate when the client itself trusts it: the web
// engine knows only the system's authorities, while the client also trusts the company's
// own (added to the default TLS configuration at start). Anything the client would not
// trust stays refused.
class TrustedPage : public QWebEnginePage {
public:
    using QWebEnginePage::QWebEnginePage;

protected:
    bool certificateError(const QWebEngineCertificateError& error) override;
};
