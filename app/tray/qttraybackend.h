#pragma once

#include "traybackend.h"

class QSystemTrayIcon;

// The toolkit's tray icon: X11/Wayland status notifiers and macOS. It reports clicks but
// not the pointer resting on the icon.
class QtTrayBackend : public TrayBackend {
    Q_OBJECT
public:
    explicit QtTrayBackend(QObject* parent = nullptr);
    ~QtTrayBackend() override;

    bool isAvailable() const override;
    void setIcon(const QIcon& icon) override;
    void setToolTip(const QString& tip) override;
    void show() override;
    void remove() override;
    QRect geometry() const override;
    bool reportsHover() const override { return false; }

private:
    QSystemTrayIcon* icon_;
};
