#pragma once

#include <QByteArray>
#include <QString>

// Keeps remembered passwords out of plain text on disk. The stored form is "qxv1:" and
// base64 of a sealed box. On Windows the user's data protection API seals it; elsewhere
// AES-256-GCM with a key held by the desktop's secret service when one runs, else by a
// key file only the user can read.
class PasswordVault {
public:
    static constexpr const char* kPrefix = "qxv1:";

    // keyFolder: where the key file goes when there is no secret service.
    explicit PasswordVault(const QString& keyFolder);

    QString protect(const QString& plain);
    // The password again; empty when it cannot be opened (other machine, damaged text).
    // Text without the prefix is an old plain entry and comes back as it is, so that an
    // upgrade loses no remembered password; the next save protects it.
    QString unprotect(const QString& stored);

    static bool isProtected(const QString& stored) {
        return stored.startsWith(QLatin1String(kPrefix));
    }
    // Where the key came from: "keychain", "file" or "dpapi"; empty until first use.
    const QString& keySource() const { return keySource_; }

private:
    bool ensureKey();
    bool keyFromKeychain();
    bool keyFromFile();

    QString keyFolder_;
    QByteArray key_;
    QString keySource_;
};
