#pragma once

#include <QObject>
#include <QPoint>
#include <QRect>

class QIcon;

// The notification-area icon as the tray logic sees it. Each platform puts the icon up
// its own way (the notification-icon call on Windows, the toolkit's tray elsewhere); the
// blinking, the card and the menu stay the same above it.
class TrayBackend : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    virtual bool isAvailable() const = 0;
    virtual void setIcon(const QIcon& icon) = 0;
    virtual void setToolTip(const QString& tip) = 0;
    virtual void show() = 0;
    virtual void remove() = 0;
    // The icon's place on the screen; empty when the platform does not say.
    virtual QRect geometry() const = 0;
    // Whether the platform reports the pointer resting on the icon (hoveredSignal).
    virtual bool reportsHover() const = 0;

signals:
    void hoveredSignal(const QPoint& pos);
    void leftClickedSignal();
    void rightClickedSignal(const QPoint& pos);
};
