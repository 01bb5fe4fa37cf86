#include "updatepublisher.h"

#include "apihelpers.h"

#include <httplib.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSettings>
#include <QUrl>

using api::reply;

UpdatePublisher::UpdatePublisher(const QString& updateDir, const QString& clientVersion,
                                 const QString& frameworkVersion)
    : updateDir_(updateDir), clientVersion_(clientVersion), frameworkVersion_(frameworkVersion) {}

QByteArray UpdatePublisher::description(const QString& publicUrl) const {
    if (updateDir_.isEmpty()) {
        const QString ini = QStringLiteral(
                                "[info]\nExeVersion=%1\nQtVersion=%2\n\n[General]\n"
                                "url_maximum=%3/update/Quelix-full-%1.zip\n"
                                "url_minimum=%3/update/Quelix-%1.zip\n\n[mac]\n"
                                "url_maximum=%3/update/Quelix-full-%1.dmg\n"
                                "url_minimum=%3/update/Quelix-%1.dmg\n")
                                .arg(clientVersion_, frameworkVersion_, publicUrl);
        return ini.toUtf8();
    }
    // The release as published in the update folder (its [General] keys are top-level); each
    // package with its size and SHA-256, so the loader can refuse a cut or altered download. Read
    // per request: a release is published by replacing release.ini, without restarting the service.
    QSettings release(QDir(updateDir_).filePath(QStringLiteral("release.ini")),
                      QSettings::IniFormat);
    QString ini =
        QStringLiteral("[info]\nExeVersion=%1\nQtVersion=%2\n\n[General]\n")
            .arg(release.value(QStringLiteral("info/ExeVersion"), clientVersion_).toString(),
                 release.value(QStringLiteral("info/QtVersion"), frameworkVersion_).toString());
    for (const char* kind : {"maximum", "minimum"}) {
        const QString name =
            release.value(QStringLiteral("package_") + QLatin1String(kind)).toString();
        QFile file(QDir(updateDir_).filePath(name));
        if (name.isEmpty() || name.contains(QLatin1Char('/')) || !file.open(QIODevice::ReadOnly))
            continue;
        QCryptographicHash sha(QCryptographicHash::Sha256);
        sha.addData(&file);
        ini += QStringLiteral("url_%1=%2/update/%3\nsize_%1=%4\nsha256_%1=%5\n")
                   .arg(QLatin1String(kind), publicUrl,
                        QString::fromUtf8(QUrl::toPercentEncoding(name)),
                        QString::number(file.size()), QString::fromLatin1(sha.result().toHex()));
    }
    return ini.toUtf8();
}

void UpdatePublisher::package(httplib::Response& res, const QString& name) const {
    // Only plain file names inside the update folder; the release description is not a
    // package.
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9][A-Za-z0-9._+-]{0,127}$"));
    QFile file(updateDir_.isEmpty() ? QString() : QDir(updateDir_).filePath(name));
    if (!plain.match(name).hasMatch() || name == QLatin1String("release.ini") ||
        !file.open(QIODevice::ReadOnly)) {
        res.status = 404;
        return reply(res, ReplyEnvelope::failure(ReplyEnvelope::NotFound));
    }
    // Streamed, so a large package never sits whole in memory.
    if (!api::replyFile(res, file.fileName(), "application/octet-stream")) {
        res.status = 500;
        reply(res, ReplyEnvelope::failure(ReplyEnvelope::InternalError));
    }
}
