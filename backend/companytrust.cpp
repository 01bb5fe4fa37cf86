#include "companytrust.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QUrl>

#include "configstore.h"
#include "logger.h"
#include "logstream.h"

namespace {

const char kFileName[] = "company-ca.pem";

}  // namespace

QString CompanyTrust::caFile() {
    const QString named = qEnvironmentVariable("QUELIX_CA_FILE");
    if (!named.isEmpty()) return named;
    const QString text = ConfigStore::instance().folderPath(ConfigStore::ResourceText);
    for (const QString& folder : {text, QCoreApplication::applicationDirPath()}) {
        if (folder.isEmpty()) continue;
        const QString path = QDir(folder).filePath(QLatin1String(kFileName));
        if (QFile::exists(path)) return path;
    }
    return QString();
}

bool CompanyTrust::install(QString* error) {
    const QString path = caFile();
    if (path.isEmpty()) return true;
    const QList<QSslCertificate> company = QSslCertificate::fromPath(path, QSsl::Pem);
    if (company.isEmpty()) {
        if (error) *error = QStringLiteral("%1 holds no certificate in PEM form").arg(path);
        return false;
    }
    QSslConfiguration config = QSslConfiguration::defaultConfiguration();
    QList<QSslCertificate> authorities = config.caCertificates();
    for (const QSslCertificate& c : company)
        if (!authorities.contains(c)) authorities << c;
    config.setCaCertificates(authorities);
    QSslConfiguration::setDefaultConfiguration(config);
    QX_LOG << "CompanyTrust: trusting the company's authority in " << path;
    return true;
}

bool CompanyTrust::isLoopback(const QString& host) {
    if (host.compare(QLatin1String("localhost"), Qt::CaseInsensitive) == 0) return true;
    const QHostAddress address(host);
    return !address.isNull() && address.isLoopback();
}

bool CompanyTrust::mayCarrySecrets(const QUrl& url) {
    const QString scheme = url.scheme().toLower();
    if (scheme == QLatin1String("https")) return true;
    return scheme == QLatin1String("http") && isLoopback(url.host());
}
