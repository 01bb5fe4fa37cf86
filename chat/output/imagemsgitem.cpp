#include "imagemsgitem.h"

#include <QImageReader>
#include <QMouseEvent>
#include <QMovie>
#include <QPainter>
#include <QPixmapCache>

#include "logger.h"
#include "manager.h"

namespace qx_output {

ImageMsgItem::ImageMsgItem(const MessageEntry& e, QWidget* parent)
    : BaseItem(e, parent), path_(e.msg.mediaPath), loading_(e.loading) {
    if (loading_) {
        movie_ = Manager::instance()->getMovie(QLatin1String(kLoadingPicture));
    } else if (QMovie* movie = Manager::instance()->getMovie(path_)) {
        Logger::instance().write(path_ + QStringLiteral(" --------------giftype: ") +
                                 QString::fromLatin1(movie->format()));
        movie_ = movie;
    } else {
        const QString key = QStringLiteral("qx_output/picture/%1/%2x%3")
                                .arg(path_)
                                .arg(content_.width())
                                .arg(content_.height());
        if (!QPixmapCache::find(key, &pixmap_)) {
            QImageReader reader(path_);
            reader.setAutoTransform(true);
            reader.setScaledSize(content_);
            const QImage image = reader.read();
            if (!image.isNull()) {
                pixmap_ = QPixmap::fromImage(image);
                QPixmapCache::insert(key, pixmap_);
            }
        }
        if (pixmap_.isNull()) {
            broken_ = true;
            pixmap_.load(QLatin1String(kBrokenPicture));
        }
    }
    if (movie_) connect(movie_, &QMovie::frameChanged, this, &ImageMsgItem::OnAnimate);
}

void ImageMsgItem::OnAnimate(int) { update(contentRect()); }

QString ImageMsgItem::indexFormat() const {
    return QString::fromLatin1(QImageReader(path_).format());
}

void ImageMsgItem::paintEvent(QPaintEvent* event) {
    BaseItem::paintEvent(event);
    QPainter p(this);
    p.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRect target = contentRect();
    if (movie_) {
        p.drawPixmap(target, movie_->currentPixmap());
    } else if (!pixmap_.isNull()) {
        p.drawPixmap(target, pixmap_);
    }
}

void ImageMsgItem::mousePressEvent(QMouseEvent* event) {
    if (contentRect().contains(event->pos()) && !loading_ && !broken_) {
        if (event->button() == Qt::LeftButton) {
            emit showPictureSignal(path_);
            return;
        }
        if (event->button() == Qt::RightButton) {
            emit showPictureMenuSignal(path_);
            return;
        }
    }
    BaseItem::mousePressEvent(event);
}

}  // namespace qx_output
