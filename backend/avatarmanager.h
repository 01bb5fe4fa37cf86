#pragma once

#include <QImage>
#include <QObject>
#include <QQueue>
#include <QSet>
#include <QString>

class QNetworkAccessManager;
class QNetworkReply;

namespace quelix {

// Downloads colleagues' pictures once, keeps them (and a grey copy for colleagues who are
// off line) as files, and says when one is ready. Pictures are fetched as views ask for
// them, a few at a time; a file already on disk is used without asking the network.
class AvatarManager : public QObject {
    Q_OBJECT
public:
    enum RequestKind { Colleague = 0, TribeMember = 1, Self = 2 };
    static const char* const kSuffixes[3];
    static constexpr int kMaxInFlight = 4;

    static AvatarManager& instance();
    // folder empty: the avatar folder of the configuration tree.
    explicit AvatarManager(const QString& folder = QString(), QObject* parent = nullptr);

    // Asks for a colleague's picture. Emits signal_ReceiveAvatar at once when it is on disk
    // already, else when the download is through. Returns false for an empty address.
    bool requestAvatar(const QString& userId, const QString& sourceUrl,
                       RequestKind kind = Colleague);

    QString avatarPath(const QString& userId) const;
    static QString grayPath(const QString& avatarPath);
    // The picture to show for a colleague now: theirs when downloaded, else the default.
    QString displayPath(const QString& userId, bool online) const;

    static QString downloadUrl(const QString& sourceUrl, RequestKind kind = Colleague);
    static QImage toGray(const QImage& source);

    void setSelfId(const QString& id) { selfId_ = id; }
    int inFlight() const { return inFlight_; }

signals:
    void signal_ReceiveAvatar(const QString& userId, const QString& path);

private:
    struct Pending {
        QString userId;
        QString url;
    };
    void startNext();
    void onFinished(QNetworkReply* reply, const QString& userId);

    QNetworkAccessManager* network_;
    QString folder_;
    QString selfId_;
    QQueue<Pending> queue_;
    QSet<QString> requested_;
    int inFlight_ = 0;
};

}  // namespace quelix
