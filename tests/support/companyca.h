#pragma once

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QString>

// Hands the test's certificate authority to the client as a company does: "company-ca.pem"
// beside the URL table in the client's configuration, below the client's documents `docs`
// (this process's own when empty). An empty `caFile` (a plain server) hands out nothing.
inline bool handOutCompanyCa(const QString& caFile, const QString& docs = QString()) {
    if (caFile.isEmpty()) return true;
    const QString text =
        (docs.isEmpty()
             ? QStandardPaths::standardLocations(QStandardPaths::DocumentsLocation).first()
             : docs) +
        QStringLiteral("/Quelix/Resource/Text");
    QDir().mkpath(text);
    const QString target = text + QStringLiteral("/company-ca.pem");
    QFile::remove(target);
    return QFile::copy(caFile, target);
}
