#include "picturelable.h"

#include <QImageReader>
#include <QMovie>

#include "manager.h"

namespace qx_output {

PictureLable::PictureLable(QWidget* parent) : QLabel(parent) {
    setAlignment(Qt::AlignCenter);
    setTextFormat(Qt::PlainText);
}

bool PictureLable::setPicture(const QString& path) {
    if (QMovie* movie = Manager::instance()->getMovie(path)) {
        setMovie(movie);
        resize(movie->frameRect().size());
        return true;
    }
    QImageReader reader(path);
    reader.setAutoTransform(true);
    const QImage image = reader.read();
    if (image.isNull()) {
        setText(QStringLiteral("图片无法显示"));
        return false;
    }
    setPixmap(QPixmap::fromImage(image));
    resize(image.size());
    return true;
}

}  // namespace qx_output
