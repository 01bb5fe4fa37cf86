#include "passwordvault.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QTimer>

#ifdef Q_OS_WIN
#include "dataprotection.h"
#else
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <qt5keychain/keychain.h>
#endif

namespace {
constexpr int kKeyBytes = 32;
constexpr int kNonceBytes = 12;
constexpr int kTagBytes = 16;
const char kService[] = "Quelix";
const char kKeyName[] = "remembered-logins";
}  // namespace

PasswordVault::PasswordVault(const QString& keyFolder) : keyFolder_(keyFolder) {}

#ifdef Q_OS_WIN

bool PasswordVault::ensureKey() {
    keySource_ = QStringLiteral("dpapi");
    return true;
}
bool PasswordVault::keyFromKeychain() { return false; }
bool PasswordVault::keyFromFile() { return false; }

QString PasswordVault::protect(const QString& plain) {
    if (plain.isEmpty()) return QString();
    ensureKey();
    const QByteArray in = plain.toUtf8();
    std::string sealed;
    if (!dpapi::protect(std::string(in.constData(), size_t(in.size())), &sealed)) return QString();
    return QLatin1String(kPrefix) +
           QString::fromLatin1(QByteArray(sealed.data(), int(sealed.size())).toBase64());
}

QString PasswordVault::unprotect(const QString& stored) {
    if (!isProtected(stored)) return stored;
    ensureKey();
    const QByteArray sealed = QByteArray::fromBase64(stored.mid(int(qstrlen(kPrefix))).toLatin1());
    std::string plain;
    if (!dpapi::unprotect(std::string(sealed.constData(), size_t(sealed.size())), &plain))
        return QString();
    return QString::fromUtf8(plain.data(), int(plain.size()));
}

#else

bool PasswordVault::keyFromKeychain() {
    // Only when a session bus is there: without one the secret service cannot answer.
    if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS")) return false;
    QEventLoop loop;
    QTimer::singleShot(3000, &loop, &QEventLoop::quit);
    QKeychain::ReadPasswordJob read{QLatin1String(kService)};
    read.setAutoDelete(false);
    read.setKey(QLatin1String(kKeyName));
    QObject::connect(&read, &QKeychain::Job::finished, &loop, &QEventLoop::quit);
    read.start();
    loop.exec();
    if (read.error() == QKeychain::NoError) {
        key_ = QByteArray::fromBase64(read.textData().toLatin1());
        return key_.size() == kKeyBytes;
    }
    if (read.error() != QKeychain::EntryNotFound) return false;

    QByteArray fresh(kKeyBytes, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(fresh.data()), kKeyBytes) != 1) return false;
    QKeychain::WritePasswordJob write{QLatin1String(kService)};
    write.setAutoDelete(false);
    write.setKey(QLatin1String(kKeyName));
    write.setTextData(QString::fromLatin1(fresh.toBase64()));
    QEventLoop wait;
    QTimer::singleShot(3000, &wait, &QEventLoop::quit);
    QObject::connect(&write, &QKeychain::Job::finished, &wait, &QEventLoop::quit);
    write.start();
    wait.exec();
    if (write.error() != QKeychain::NoError) return false;
    key_ = fresh;
    return true;
}

bool PasswordVault::keyFromFile() {
    QDir().mkpath(keyFolder_);
    const QString path = keyFolder_ + QStringLiteral("/.vault.key");
    QFile file(path);
    if (file.open(QIODevice::ReadOnly)) {
        key_ = QByteArray::fromBase64(file.readAll().trimmed());
        return key_.size() == kKeyBytes;
    }
    QByteArray fresh(kKeyBytes, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(fresh.data()), kKeyBytes) != 1) return false;
    // Readable by the user alone, from the moment it exists.
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly)) return false;
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    if (file.write(fresh.toBase64()) <= 0 || !file.flush()) {
        file.remove();
        return false;
    }
    key_ = fresh;
    return true;
}

bool PasswordVault::ensureKey() {
    if (key_.size() == kKeyBytes) return true;
    if (keyFromKeychain()) {
        keySource_ = QStringLiteral("keychain");
        return true;
    }
    if (keyFromFile()) {
        keySource_ = QStringLiteral("file");
        return true;
    }
    key_.clear();
    return false;
}

QString PasswordVault::protect(const QString& plain) {
    if (plain.isEmpty() || !ensureKey()) return QString();
    const QByteArray in = plain.toUtf8();
    QByteArray box(kNonceBytes + in.size() + kTagBytes, '\0');
    auto* nonce = reinterpret_cast<unsigned char*>(box.data());
    auto* cipher = nonce + kNonceBytes;
    if (RAND_bytes(nonce, kNonceBytes) != 1) return QString();
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    int len = 0;
    int total = 0;
    bool ok = ctx && EVP_EncryptInit_ex(ctx, EVP_aes_256_gcm(), nullptr,
                                        reinterpret_cast<const unsigned char*>(key_.constData()),
                                        nonce) == 1;
    ok = ok &&
         EVP_EncryptUpdate(ctx, cipher, &len,
                           reinterpret_cast<const unsigned char*>(in.constData()), in.size()) == 1;
    total = len;
    ok = ok && EVP_EncryptFinal_ex(ctx, cipher + total, &len) == 1;
    total += len;
    ok = ok && EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_GET_TAG, kTagBytes, cipher + total) == 1;
    EVP_CIPHER_CTX_free(ctx);
    if (!ok || total != in.size()) return QString();
    return QLatin1String(kPrefix) + QString::fromLatin1(box.toBase64());
}

QString PasswordVault::unprotect(const QString& stored) {
    if (!isProtected(stored)) return stored;
    const QByteArray box = QByteArray::fromBase64(stored.mid(int(qstrlen(kPrefix))).toLatin1());
    if (box.size() < kNonceBytes + kTagBytes || !ensureKey()) return QString();
    const int size = box.size() - kNonceBytes - kTagBytes;
    const auto* nonce = reinterpret_cast<const unsigned char*>(box.constData());
    const auto* cipher = nonce + kNonceBytes;
    QByteArray out(size, '\0');
    QByteArray tag = box.right(kTagBytes);
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    int len = 0;
    bool ok = ctx && EVP_DecryptInit_ex(ctx, EVP_aes_256_gcm(), nullptr,
                                        reinterpret_cast<const unsigned char*>(key_.constData()),
                                        nonce) == 1;
    ok = ok && EVP_DecryptUpdate(ctx, reinterpret_cast<unsigned char*>(out.data()), &len, cipher,
                                 size) == 1;
    ok = ok && EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_SET_TAG, kTagBytes, tag.data()) == 1;
    int tail = 0;
    // The tag check: a changed byte anywhere, or another key, opens nothing.
    ok = ok &&
         EVP_DecryptFinal_ex(ctx, reinterpret_cast<unsigned char*>(out.data()) + len, &tail) == 1;
    EVP_CIPHER_CTX_free(ctx);
    return ok ? QString::fromUtf8(out) : QString();
}

#endif
