#include "avatarmanager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QSaveFile>

#include "configstore.h"
#include "mainviewdelegate.h"

namespace quelix {

// One entry per request kind; the image service is asked the same for all of them.
const char* const AvatarManager::kSuffixes[3] = {
    "@1e_150w_150h_1c_0i_1o_80Q_1x_100-1ci.png",
    "@1e_150w_150h_1c_0i_1o_80Q_1x_100-1ci.png",
    "@1e_150w_150h_1c_0i_1o_80Q_1x_100-1ci.png",
};

AvatarManager& AvatarManager::instance() {
    static AvatarManager manager;
    return manager;
}

AvatarManager::AvatarManager(const QString& folder, QObject* parent)
    : QObject(parent),
      network_(new QNetworkAccessManager(this)),
      folder_(folder.isEmpty() ? ConfigStore::instance().folderPath(ConfigStore::Avatar) : folder) {
}

QString AvatarManager::downloadUrl(const QString& sourceUrl, RequestKind kind) {
    const int query = sourceUrl.indexOf(QLatin1Char('?'));
    const int k = kind >= 0 && kind < 3 ? kind : 0;
    return (query < 0 ? sourceUrl : sourceUrl.left(query)) + QLatin1String(kSuffixes[k]);
}

QString AvatarManager::avatarPath(const QString& userId) const {
    // Ids are the directory's decimal texts; anything else is kept out of the path.
    QString safe = userId;
    for (QChar& c : safe) {
        const ushort u = c.unicode();
        const bool plain = (u >= '0' && u <= '9') || (u >= 'A' && u <= 'Z') ||
                           (u >= 'a' && u <= 'z') || u == '_' || u == '-';
        if (!plain) c = QLatin1Char('_');
    }
    return folder_ + QLatin1Char('/') + safe + QStringLiteral(".png");
}

QString AvatarManager::grayPath(const QString& avatarPath) {
    return avatarPath.left(avatarPath.size() - 4) + QStringLiteral("_gray.png");
}

QString AvatarManager::displayPath(const QString& userId, bool online) const {
    const QString own = avatarPath(userId);
    if (QFile::exists(own)) return online ? own : grayPath(own);
    return online ? ConfigStore::instance().filePath(ConfigStore::DefaultUserIcon)
                  : ConfigStore::instance().filePath(ConfigStore::DefaultUserIconGray);
}

QImage AvatarManager::toGray(const QImage& source) {
    QImage gray(source.width(), source.height(), QImage::Format_ARGB32);
    for (int x = 0; x < source.width(); ++x) {
        for (int y = 0; y < source.height(); ++y) {
            const QRgb p = source.pixel(x, y);
            // Weights 11/16/5 out of 32: white stays white, integer division truncates.
            const int g = (11 * qRed(p) + 16 * qGreen(p) + 5 * qBlue(p)) / 32;
            gray.setPixel(x, y, qRgba(g, g, g, qAlpha(p)));
        }
    }
    return gray;
}

bool AvatarManager::requestAvatar(const QString& userId, const QString& sourceUrl,
                                  RequestKind kind) {
    if (userId.isEmpty()) return false;
    const QString path = avatarPath(userId);
    if (QFile::exists(path) && QFile::exists(grayPath(path))) {
        emit signal_ReceiveAvatar(userId, path);
        return true;
    }
    if (sourceUrl.isEmpty()) return false;
    if (requested_.contains(userId)) return true;  // on its way already
    requested_.insert(userId);
    queue_.enqueue({userId, downloadUrl(sourceUrl, kind)});
    startNext();
    return true;
}

void AvatarManager::startNext() {
    while (inFlight_ < kMaxInFlight && !queue_.isEmpty()) {
        const Pending next = queue_.dequeue();
        QNetworkRequest request{QUrl(next.url, QUrl::TolerantMode)};
        request.setHeader(QNetworkRequest::ContentTypeHeader,
                          QStringLiteral("application/x-www-form-urlencoded"));
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                             QNetworkRequest::NoLessSafeRedirectPolicy);
        QNetworkReply* reply = network_->get(request);
        if (!reply) {
            requested_.remove(next.userId);
            continue;
        }
        ++inFlight_;
        const QString userId = next.userId;
        connect(reply, &QNetworkReply::finished, this,
                [this, reply, userId] { onFinished(reply, userId); });
    }
}

void AvatarManager::onFinished(QNetworkReply* reply, const QString& userId) {
    --inFlight_;
    requested_.remove(userId);
    if (reply->error() == QNetworkReply::NoError) {
        const QByteArray body = reply->readAll();
        QImage image;
        // Only a picture is kept: an error page or garbage must not become an avatar.
        if (image.loadFromData(body)) {
            QDir().mkpath(folder_);
            const QString path = avatarPath(userId);
            QSaveFile file(path);
            if (file.open(QIODevice::WriteOnly) && file.write(body) == body.size() &&
                file.commit()) {
                QImage stored(path, "PNG");
                if (stored.isNull()) stored = image;  // the service sent another format
                toGray(stored).save(grayPath(path));
                emit signal_ReceiveAvatar(userId, path);
                if (userId == selfId_)
                    if (MainViewDelegate* shell = MainViewDelegate::instance())
                        shell->updateUserIcon(userId);
            }
        }
    }
    reply->deleteLater();
    startNext();
}

}  // namespace quelix
