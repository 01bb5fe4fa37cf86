#pragma once

#include <QElapsedTimer>
#include <QProcess>
#include <QSslConfiguration>
#include <QString>
#include <QStringList>

// Waits until a started quelix-backend prints where it listens ("quelix-backend listening
// on https://HOST:PORT", or http:// without a certificate) and returns that address; empty after a
// minute without it. What the back end printed so far goes to `output`, for the test's failure
// message.
inline QString waitForBackendUrl(QProcess& backend, QByteArray* output) {
    QByteArray seen;
    QElapsedTimer clock;
    clock.start();
    while (!seen.contains("listening on http") && clock.elapsed() < 60000) {
        backend.waitForReadyRead(200);
        seen += backend.readAllStandardOutput();
    }
    if (output) *output = seen;
    const int at = seen.indexOf("listening on http");
    if (at < 0) return QString();
    int end = seen.indexOf('\n', at);
    if (end < 0) end = seen.size();
    return QString::fromLatin1(seen.mid(at, end - at).trimmed()).split(QLatin1Char(' ')).last();
}

// The arguments that make the back end serve HTTPS with `certFile` and `keyFile` (none for
// an empty `certFile`); this process, a colleague's browser, then trusts `caFile`.
inline QStringList backendTlsArguments(const QString& caFile, const QString& certFile,
                                       const QString& keyFile) {
    if (certFile.isEmpty()) return {};
    QSslConfiguration conf = QSslConfiguration::defaultConfiguration();
    conf.addCaCertificates(caFile);
    QSslConfiguration::setDefaultConfiguration(conf);
    return {QStringLiteral("--tls-cert"), certFile, QStringLiteral("--tls-key"), keyFile};
}
