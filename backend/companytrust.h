#pragma once

#include <QString>

class QUrl;

// The company's own certificate authority, and where a password may go. A company that runs
// its back end and IM server with certificates from an authority of its own hands its
// desktops that authority as a PEM file: QUELIX_CA_FILE names it, or else "company-ca.pem" in
// the configuration's text folder (beside "UrlText.ini") or beside the program. It is trusted
// beside the system's authorities for the client's requests, the IM session and the web
// sidebar.
class CompanyTrust {
public:
    // The file in use; empty when there is none.
    static QString caFile();
    // Adds the company's authority to the default TLS configuration, once at start. False,
    // with `error`, when a file is there but holds no certificate.
    static bool install(QString* error);

    static bool isLoopback(const QString& host);
    // Whether a password may be sent to `url`: over HTTPS, or over HTTP to this machine.
    static bool mayCarrySecrets(const QUrl& url);
};
