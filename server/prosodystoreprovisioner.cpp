#include "prosodystoreprovisioner.h"

#include <QDir>
#include <QSaveFile>

namespace {

QByteArray luaString(const QString& value) {
    QByteArray out = "\"";
    for (char c : value.toUtf8()) {
        const auto u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\' || u < 0x20 || u >= 0x7f) {
            out += '\\';
            out += QByteArray::number(u).rightJustified(3, '0');
        } else {
            out += c;
        }
    }
    return out + '"';
}

}  // namespace

ProsodyStoreProvisioner::ProsodyStoreProvisioner(const QString& dataDir, const QString& domain)
    : dataDir_(dataDir), domain_(domain) {}

QString ProsodyStoreProvisioner::encodeName(const QString& name) {
    QString out;
    for (char c : name.toUtf8()) {
        const auto u = static_cast<unsigned char>(c);
        if ((u >= '0' && u <= '9') || (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z')) {
            out += QLatin1Char(c);
        } else {
            out += QStringLiteral("%%1").arg(u, 2, 16, QLatin1Char('0'));
        }
    }
    return out;
}

bool ProsodyStoreProvisioner::provision(const QVector<Account>& accounts, QString* error) {
    const QString folder =
        dataDir_ + QLatin1Char('/') + encodeName(domain_) + QStringLiteral("/accounts");
    if (!QDir().mkpath(folder)) {
        if (error) *error = QStringLiteral("cannot create %1").arg(folder);
        return false;
    }
    for (const Account& a : accounts) {
        // Node parts are ids here, but never let a name leave the accounts folder.
        if (a.user.isEmpty() || a.secret.isEmpty()) continue;
        QSaveFile file(folder + QLatin1Char('/') + encodeName(a.user.toLower()) +
                       QStringLiteral(".dat"));
        if (!file.open(QIODevice::WriteOnly)) {
            if (error) *error = file.errorString();
            return false;
        }
        file.write("return {\n\t[\"password\"] = " + luaString(a.secret) + ";\n};\n");
        if (!file.commit()) {
            if (error) *error = file.errorString();
            return false;
        }
    }
    return true;
}
