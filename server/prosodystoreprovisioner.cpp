#include "prosodystoreprovisioner.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QSet>

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

bool writeFile(const QString& path, const QByteArray& content, QString* error) {
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && file.commit()) {
        return true;
    }
    if (error) *error = QStringLiteral("%1: %2").arg(path, file.errorString());
    return false;
}

}  // namespace

ProsodyStoreProvisioner::ProsodyStoreProvisioner(const QString& dataDir, const QString& domain,
                                                 const QString& mucDomain)
    : dataDir_(dataDir),
      domain_(domain),
      mucDomain_(mucDomain.isEmpty() ? QStringLiteral("conference.") + domain : mucDomain) {}

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

bool ProsodyStoreProvisioner::provisionRooms(const QVector<Room>& rooms, QString* error) {
    const QString host = dataDir_ + QLatin1Char('/') + encodeName(mucDomain_);
    const QString configs = host + QStringLiteral("/config");
    if (!QDir().mkpath(configs)) {
        if (error) *error = QStringLiteral("cannot create %1").arg(configs);
        return false;
    }
    QByteArray persistent = "return {\n";
    QSet<QString> kept;
    for (const Room& room : rooms) {
        const QString jid = room.id + QLatin1Char('@') + mucDomain_;
        const QString file = encodeName(room.id) + QStringLiteral(".dat");
        kept.insert(file);
        QByteArray affiliations;
        for (const QString& member : room.members) {
            if (member == room.owner) continue;
            affiliations +=
                "\t\t[" + luaString(member + QLatin1Char('@') + domain_) + "] = \"member\";\n";
        }
        affiliations +=
            "\t\t[" + luaString(room.owner + QLatin1Char('@') + domain_) + "] = \"owner\";\n";
        // Prosody's older room layout, which it still reads: "jid" plus "_affiliations".
        const QByteArray config = "return {\n\t[\"jid\"] = " + luaString(jid) +
                                  ";\n\t[\"_data\"] = {\n\t\t[\"persistent\"] = true;\n"
                                  "\t\t[\"members_only\"] = true;\n\t\t[\"name\"] = " +
                                  luaString(room.name) + ";\n\t};\n\t[\"_affiliations\"] = {\n" +
                                  affiliations + "\t};\n\t[\"_affiliation_data\"] = {};\n};\n";
        if (!writeFile(configs + QLatin1Char('/') + file, config, error)) return false;
        persistent += "\t[" + luaString(jid) + "] = true;\n";
    }
    persistent += "};\n";
    // Rooms of projects that are gone must not come back when someone asks for them.
    for (const QString& stale : QDir(configs).entryList({QStringLiteral("*.dat")}, QDir::Files)) {
        if (!kept.contains(stale)) QFile::remove(configs + QLatin1Char('/') + stale);
    }
    return writeFile(host + QStringLiteral("/persistent.dat"), persistent, error);
}
