#include "showpicturewidget.h"

#include <QFileInfo>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QScreen>
#include <QScrollArea>
#include <QVBoxLayout>

#include "picturelable.h"

namespace qx_output {

ShowPictureWidget::ShowPictureWidget(QWidget* parent) : QWidget(parent, Qt::Window) {
    setAttribute(Qt::WA_DeleteOnClose);
    setObjectName(QStringLiteral("showPictureWidget"));
    area_ = new QScrollArea(this);
    area_->setAlignment(Qt::AlignCenter);
    area_->setStyleSheet(QStringLiteral("QScrollArea{background-color:#2b2b2b;border:0px;}"));
    label_ = new PictureLable;
    area_->setWidget(label_);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(area_);
}

bool ShowPictureWidget::showPicture(const QString& path) {
    path_ = path;
    setWindowTitle(QFileInfo(path).fileName());
    const bool ok = label_->setPicture(path);
    QSize want = label_->size() + QSize(4, 4);
    if (QScreen* screen = QGuiApplication::primaryScreen())
        want = want.boundedTo(screen->availableSize() * 0.9);
    resize(want.expandedTo(QSize(240, 180)));
    return ok;
}

void ShowPictureWidget::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        close();
        return;
    }
    QWidget::keyPressEvent(event);
}

}  // namespace qx_output
