#pragma once

#include <QElapsedTimer>
#include <QProcess>
#include <QString>

// Waits until a started quelix-backend prints where it listens ("quelix-backend listening
// on http://HOST:PORT") and returns that address; empty after a minute without it. What the
// back end printed so far goes to `output`, for the test's failure message.
inline QString waitForBackendUrl(QProcess& backend, QByteArray* output) {
    QByteArray seen;
    QElapsedTimer clock;
    clock.start();
    while (!seen.contains("listening on http://") && clock.elapsed() < 60000) {
        backend.waitForReadyRead(200);
        seen += backend.readAllStandardOutput();
    }
    if (output) *output = seen;
    const int at = seen.indexOf("listening on http://");
    if (at < 0) return QString();
    int end = seen.indexOf('\n', at);
    if (end < 0) end = seen.size();
    return QString::fromLatin1(seen.mid(at, end - at).trimmed()).split(QLatin1Char(' ')).last();
}
