#include "wintraybackend.h"

#include <QCoreApplication>
#include <QCursor>
#include <QIcon>
#include <QImage>

#include "platform/notifyicon.h"

WinTrayBackend::WinTrayBackend(QObject* parent) : TrayBackend(parent) {
    window_.setAttribute(Qt::WA_NativeWindow);
    icon_ = std::make_unique<platform::NotifyIcon>(std::uintptr_t(window_.winId()));
    QCoreApplication::instance()->installNativeEventFilter(this);
}

WinTrayBackend::~WinTrayBackend() {
    QCoreApplication::instance()->removeNativeEventFilter(this);
    remove();
}

void WinTrayBackend::setIcon(const QIcon& icon) {
    image_ = icon.pixmap(16, 16).toImage().convertToFormat(QImage::Format_ARGB32);
    push();
}

void WinTrayBackend::setToolTip(const QString& tip) {
    tip_ = tip;
    push();
}

void WinTrayBackend::show() {
    shown_ = true;
    push();
}

void WinTrayBackend::remove() {
    shown_ = false;
    icon_->remove();
}

void WinTrayBackend::push() {
    if (!shown_ || image_.isNull()) return;
    platform::NotifyIconImage img;
    img.width = image_.width();
    img.height = image_.height();
    img.argb = reinterpret_cast<const std::uint32_t*>(image_.constBits());
    icon_->set(img, tip_.toStdWString());
}

bool WinTrayBackend::nativeEventFilter(const QByteArray& eventType, void* message, long* result) {
    Q_UNUSED(result);
    if (eventType != "windows_generic_MSG") return false;
    const platform::NotifyIconEvent e = platform::NotifyIcon::decode(message);
    if (e == platform::NotifyIconEvent::None) return false;
    const QPoint pos = QCursor::pos();
    // The system does not say where the icon is; the pointer over it marks its area.
    area_ = QRect(pos - QPoint(8, 8), QSize(16, 16));
    switch (e) {
        case platform::NotifyIconEvent::MouseMove:
            emit hoveredSignal(pos);
            break;
        case platform::NotifyIconEvent::LeftButtonDown:
            emit leftClickedSignal();
            break;
        case platform::NotifyIconEvent::RightButtonDown:
            emit rightClickedSignal(pos);
            break;
        default:
            break;
    }
    return true;
}
