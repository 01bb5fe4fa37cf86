// Copying and saving a picture of a conversation page, from its menu.
#include "pictureactions.h"

#include <QApplication>
#include <QClipboard>
#include <QCursor>
#include <QFileInfo>
#include <QImage>

#include "prompts.h"
#include "viewmenu.h"

namespace qx_output {

void PictureActions::showMenu(const QString& path) const {
    auto* menu = new ViewMenu(path, page_);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(menu, &ViewMenu::copySignal, menu, &PictureActions::copy);
    QObject::connect(menu, &ViewMenu::saveSignal, menu, [page = page_](const QString& picture) {
        PictureActions(page).save(picture);
    });
    menu->popup(QCursor::pos());
}

void PictureActions::copy(const QString& path) {
    const QImage image(path);
    if (!image.isNull()) QApplication::clipboard()->setImage(image);
}

bool PictureActions::save(const QString& path) const {
    QString target =
        Prompts::saveName(page_, saveName(), QStringLiteral("图片 (*.jpg *.png *.bmp)"));
    if (target.isEmpty()) return false;
    if (QFileInfo(target).suffix().isEmpty()) target += QStringLiteral(".png");
    const QImage image(path);
    if (image.isNull() || !image.save(target)) {
        Prompts::error(page_, QStringLiteral("保存文件：%1 失败。").arg(target));
        return false;
    }
    return true;
}

QString PictureActions::saveName(const QDateTime& now) {
    return now.toString(QStringLiteral("yyyyMMddhhmmss"));
}

}  // namespace qx_output
