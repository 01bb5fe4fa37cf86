#include "manager.h"

#include <QCoreApplication>
#include <QImageReader>
#include <QMovie>
#include <QNetworkAccessManager>

#include "filetransfer.h"
#include "taskreadflags.h"

namespace qx_output {

Manager* Manager::instance() {
    // Lives until exit, parented to the application so it goes before the event loop's
    // objects do.
    static Manager* manager = new Manager(QCoreApplication::instance());
    return manager;
}

Manager::Manager(QObject* parent) : QObject(parent), readFlags_(new TaskReadFlags(this)) {}

QMovie* Manager::getMovie(const QString& path) {
    auto it = movies_.constFind(path);
    if (it != movies_.constEnd()) return it.value();
    QImageReader reader(path);
    QMovie* movie = nullptr;
    if (reader.canRead() && reader.supportsAnimation() && reader.imageCount() != 1) {
        movie = new QMovie(path, QByteArray(), this);
        movie->setCacheMode(QMovie::CacheNone);
        movie->start();
    }
    movies_.insert(path, movie);
    return movie;
}

QNetworkAccessManager* Manager::network() {
    if (network_) return network_;
    if (!ownNetwork_) ownNetwork_ = new QNetworkAccessManager(this);
    return ownNetwork_;
}

FileTransfer* Manager::transfer(const QString& key) {
    FileTransfer*& t = transfers_[key];
    if (!t) t = new FileTransfer(this);
    return t;
}

void Manager::rekeyTransfer(const QString& from, const QString& to) {
    FileTransfer* t = transfers_.take(from);
    if (t) transfers_.insert(to, t);
}

}  // namespace qx_output
