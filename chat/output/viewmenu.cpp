#include "viewmenu.h"

namespace qx_output {

ViewMenu::ViewMenu(const QString& path, QWidget* parent) : QMenu(parent), path_(path) {
    setStyleSheet(QStringLiteral("QMenu{background-color:rgb(244,245,246);font-family:%1;}"
                                 "QMenu::item {background-color: transparent;}"
                                 "QMenu::item:selected {background-color: #90c8f6;}")
                      .arg(font().family()));
    copy_ = addAction(QStringLiteral("复制"));
    save_ = addAction(QStringLiteral("另存为..."));
    connect(copy_, &QAction::triggered, this, [this] { emit copySignal(path_); });
    connect(save_, &QAction::triggered, this, &ViewMenu::viewMenuSave);
}

void ViewMenu::viewMenuSave(bool) { emit saveSignal(path_); }

}  // namespace qx_output
