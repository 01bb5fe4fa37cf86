#pragma once

#include <QObject>
#include <QPoint>
#include <QTimer>

#include "shakepath.h"

class QHideEvent;
class QShowEvent;
class QWidget;

// How the frameless main window moves: dragged by the parts of it that stand in for a
// title bar, shaken when a colleague nudges the user, and put back where it was when it
// comes back from the tray.
class WindowMotion : public QObject {
    Q_OBJECT
public:
    static constexpr int kShakeSteps = 20;
    static constexpr int kShakeIntervalMs = 30;

    WindowMotion(QWidget* window, int shakeAmplitude);

    // A press and drag on `handle` moves the window.
    void addHandle(QWidget* handle);
    bool isDragging() const { return dragging_; }

    // Shakes the window; a request while it shakes is ignored.
    void shake();
    // One tick of the shake.
    void shakeStep();
    QTimer* shakeTimer() { return &shakeTimer_; }
    int shakeCounter() const { return shake_.remaining(); }

    // The window's hide and show events, after the window has handled them.
    void windowHidden(const QHideEvent* event);
    void windowShown(const QShowEvent* event);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QWidget* window_;
    bool dragging_ = false;
    QPoint dragOffset_;
    QTimer shakeTimer_;
    ShakePath shake_;
    // Where the window was when it went to the tray (its frame's top-left, as pos()).
    QPoint hiddenAt_;
    bool hasHiddenAt_ = false;
};
