#pragma once

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QString>

// Hands the test's certificate authority to the client as a company does: "company-ca.pem"
// beside the URL table in the client's configuration. An empty `caFile` (a plain server)
// hands out nothing.
inline bool handOutCompanyCa(const QString& caFile) {
    if (caFile.isEmpty()) return true;
    const QString text =
        QStandardPaths::standardLocations(QStandardPaths::DocumentsLocation).first() +
        QStringLiteral("/Quelix/Resource/Text");
    QDir().mkpath(text);
    const QString target = text + QStringLiteral("/company-ca.pem");
    QFile::remove(target);
    return QFile::copy(caFile, target);
}
