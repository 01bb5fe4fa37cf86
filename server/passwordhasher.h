#pragma once

#include <QByteArray>
#include <QString>

// Salted PBKDF2-HMAC-SHA256. The stored text names its own iteration count, so raising the
// cost later leaves older hashes readable.
class PasswordHasher {
public:
    static constexpr int kDefaultIterations = 100000;

    explicit PasswordHasher(int iterations = kDefaultIterations);

    int iterations() const { return iterations_; }

    // "pbkdf2-sha256$<iterations>$<salt base64>$<key base64>"
    QString hash(const QString& password) const;
    // Compares in constant time; a malformed stored text never matches.
    static bool verify(const QString& password, const QString& stored);

    // The iteration count a stored text names; `fallback` when it names none.
    static int iterationsOf(const QString& stored, int fallback);

    // Equal-length compare that does not stop at the first difference.
    static bool constantTimeEquals(const QByteArray& a, const QByteArray& b);

private:
    int iterations_;
};
