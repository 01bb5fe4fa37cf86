#pragma once

#include <QHash>
#include <QSize>

class QScreen;

// The primary screen's size and logical DPI, and the table of UI sizes scaled to it that
// the views read by key. Filled once at start-up; before that (tests) it holds the
// sizes of a 96-DPI screen.
class ScreenMetrics {
public:
    enum Key {
        MainWinWidth = 100,
        MainWinHeight = 101,
        MainWinMinWidth = 102,
        MainWinMinHeight = 103,
        BorderWidth = 110,
        TitleHeight = 111,
        TitleButtonSize = 112,
        LeftColumnWidth = 120,
        PageButtonSize = 121,
        AvatarSize = 122,
        FontSizeSmall = 125,
        FontSizeNormal = 126,
        FontSizeLarge = 127,
        CornerRadius = 130,
        ShakeAmplitude = 133,
    };

    static ScreenMetrics& instance();

    void init(const QScreen* screen);
    void init(const QSize& screenSize, qreal logicalDpi);

    QSize screenSize() const { return screenSize_; }
    qreal logicalDpi() const { return dpi_; }
    int value(int key) const { return table_.value(key, 0); }

private:
    ScreenMetrics();

    QSize screenSize_;
    qreal dpi_ = 96;
    QHash<int, int> table_;
};
