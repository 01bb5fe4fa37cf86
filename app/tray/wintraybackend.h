#pragma once

#include <QAbstractNativeEventFilter>
#include <QRect>
#include <QWidget>

#include <memory>

#include "traybackend.h"

namespace platform {
class NotifyIcon;
}

// Windows: the icon through the system's notification-icon call, its callback message
// read from the native event stream of a hidden message window. Reports the pointer
// resting on the icon, which the toolkit's tray does not.
class WinTrayBackend : public TrayBackend, public QAbstractNativeEventFilter {
    Q_OBJECT
public:
    explicit WinTrayBackend(QObject* parent = nullptr);
    ~WinTrayBackend() override;

    bool isAvailable() const override { return true; }
    void setIcon(const QIcon& icon) override;
    void setToolTip(const QString& tip) override;
    void show() override;
    void remove() override;
    QRect geometry() const override { return area_; }
    bool reportsHover() const override { return true; }

    bool nativeEventFilter(const QByteArray& eventType, void* message, long* result) override;

private:
    void push();

    QWidget window_;
    std::unique_ptr<platform::NotifyIcon> icon_;
    QImage image_;
    QString tip_;
    bool shown_ = false;
    QRect area_;
};
