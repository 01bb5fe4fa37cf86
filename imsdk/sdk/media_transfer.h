#pragma once

#include <QMap>
#include <QObject>
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

    explicit MediaTransfer(QObject* parent = nullptr);

    void upload(const QUrl& putUrl, const QMap<QString, QString>& headers, const QString& file,
                const QString& mimeType, Done done);
    // Writes `url` to `target` (made by ReceiveFolder); a failed or oversized download
    // leaves nothing behind.
    void download(const QUrl& url, const QString& target, Done done);

private:
    QNetworkAccessManager* network_;
};
