#include "passwordhasher.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <QRandomGenerator>
#include <QStringList>

namespace {

const char kScheme[] = "pbkdf2-sha256";
constexpr int kKeyBytes = 32;
constexpr int kSaltBytes = 16;
constexpr int kMaxIterations = 10000000;

QByteArray derive(const QString& password, const QByteArray& salt, int iterations) {
    const QByteArray pw = password.toUtf8();
    QByteArray key(kKeyBytes, '\0');
    if (PKCS5_PBKDF2_HMAC(pw.constData(), pw.size(),
                          reinterpret_cast<const unsigned char*>(salt.constData()), salt.size(),
                          iterations, EVP_sha256(), key.size(),
                          reinterpret_cast<unsigned char*>(key.data())) != 1) {
        return QByteArray();
    }
    return key;
}

}  // namespace

PasswordHasher::PasswordHasher(int iterations)
    : iterations_(qBound(1, iterations, kMaxIterations)) {}

QString PasswordHasher::hash(const QString& password) const {
    QByteArray salt(kSaltBytes, '\0');
    QRandomGenerator::system()->fillRange(reinterpret_cast<quint32*>(salt.data()),
                                          kSaltBytes / int(sizeof(quint32)));
    const QByteArray key = derive(password, salt, iterations_);
    return QStringLiteral("%1$%2$%3$%4")
        .arg(QLatin1String(kScheme))
        .arg(iterations_)
        .arg(QString::fromLatin1(salt.toBase64()), QString::fromLatin1(key.toBase64()));
}

bool PasswordHasher::verify(const QString& password, const QString& stored) {
    const QStringList parts = stored.split(QLatin1Char('$'));
    if (parts.size() != 4 || parts[0] != QLatin1String(kScheme)) return false;
    bool ok = false;
    const int iterations = parts[1].toInt(&ok);
    if (!ok || iterations < 1 || iterations > kMaxIterations) return false;
    const QByteArray salt = QByteArray::fromBase64(parts[2].toLatin1());
    const QByteArray expected = QByteArray::fromBase64(parts[3].toLatin1());
    if (salt.isEmpty() || expected.size() != kKeyBytes) return false;
    return constantTimeEquals(derive(password, salt, iterations), expected);
}

int PasswordHasher::iterationsOf(const QString& stored, int fallback) {
    const QStringList parts = stored.split(QLatin1Char('$'));
    bool ok = false;
    const int iterations =
        parts.size() == 4 && parts[0] == QLatin1String(kScheme) ? parts[1].toInt(&ok) : 0;
    return ok && iterations >= 1 && iterations <= kMaxIterations ? iterations : fallback;
}

bool PasswordHasher::constantTimeEquals(const QByteArray& a, const QByteArray& b) {
    if (a.size() != b.size() || a.isEmpty()) return false;
    return CRYPTO_memcmp(a.constData(), b.constData(), size_t(a.size())) == 0;
}
