#include <QApplication>
#include <QWidget>

#include "platform/platform.h"

namespace platform {

void flashWindow(std::uintptr_t nativeWindow) {
    if (QWidget* w = QWidget::find(WId(nativeWindow))) QApplication::alert(w->window());
}

}  // namespace platform
