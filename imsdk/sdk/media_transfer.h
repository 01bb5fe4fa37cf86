#pragma once

#include <QList>
#include <QMap>
#include <QNetworkRequest>
#include <QObject>
#include <QSslCertificate>
#include <QString>
#include <QUrl>
#include <functional>

class QNetworkAccessManager;

// HTTP side of pictures and files: uploads to the slot the server handed out, downloads
// received files into the receive folder. Lives on the SDK thread.
class MediaTransfer : public QObject {
    Q_OBJECT
public:
    using Done = std::function<void(bool ok, const QString& pathOrError)>;
    static constexpr qint64 kMaxDownloadBytes = 256ll * 1024 * 1024;

    // A download that trickles holds the sender's later messages back, so it must end:
    // it fails when a window passes with less than the minimum, or at the deadline.
    struct Limits {
        int deadlineMs = 30 * 60 * 1000;  // 256 MiB at the minimum rate would take longer
        int rateWindowMs = 20000;
        qint64 minBytesPerWindow = 20 * 1024;  // 1 KiB/s: a stalled or hostile host
    };

    explicit MediaTransfer(QObject* parent = nullptr);
    void setLimits(const Limits& limits) { limits_ = limits; }
    // The authorities a file server's certificate must come from.
    void setAuthorities(const QList<QSslCertificate>& authorities) { authorities_ = authorities; }

    void upload(const QUrl& putUrl, const QMap<QString, QString>& headers, const QString& file,
                const QString& mimeType, Done done);
    // Writes `url` to `target` (made by ReceiveFolder); a failed or oversized download
    // leaves nothing behind.
    void download(const QUrl& url, const QString& target, Done done);

private:
    QNetworkAccessManager* network_;
    QNetworkRequest request(const QUrl& url) const;

    Limits limits_;
    QList<QSslCertificate> authorities_;
};
