#pragma once

#include <QIcon>

#include "traybackend.h"

// A tray that remembers what it was given and lets the test act as the platform.
class FakeTrayBackend : public TrayBackend {
    Q_OBJECT
public:
    bool isAvailable() const override { return true; }
    void setIcon(const QIcon& icon) override {
        lastIcon = icon;
        ++iconSets;
    }
    void setToolTip(const QString& tip) override { this->tip = tip; }
    void show() override { shown = true; }
    void remove() override { shown = false; }
    QRect geometry() const override { return area; }
    bool reportsHover() const override { return hover; }

    QIcon lastIcon;
    int iconSets = 0;
    QString tip;
    bool shown = false;
    bool hover = true;
    QRect area{1000, 700, 16, 16};
};
