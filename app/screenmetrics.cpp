#include "screenmetrics.h"

#include <QScreen>
#include <QtMath>

ScreenMetrics& ScreenMetrics::instance() {
    static ScreenMetrics metrics;
    return metrics;
}

ScreenMetrics::ScreenMetrics() { init(QSize(1920, 1080), 96); }

void ScreenMetrics::init(const QScreen* screen) {
    if (screen) init(screen->size(), screen->logicalDotsPerInch());
}

void ScreenMetrics::init(const QSize& screenSize, qreal logicalDpi) {
    screenSize_ = screenSize;
    dpi_ = logicalDpi > 0 ? logicalDpi : 96;
    const qreal scale = dpi_ / 96.0;
    auto scaled = [scale](int px) { return qMax(1, qRound(px * scale)); };

    // Sizes at 96 DPI; the window never starts larger than 90% of the screen.
    table_.clear();
    table_[MainWinWidth] = qMin(scaled(960), qRound(screenSize.width() * 0.9));
    table_[MainWinHeight] = qMin(scaled(680), qRound(screenSize.height() * 0.9));
    table_[MainWinMinWidth] = qMin(scaled(760), table_[MainWinWidth]);
    table_[MainWinMinHeight] = qMin(scaled(520), table_[MainWinHeight]);
    table_[BorderWidth] = scaled(1);
    table_[TitleHeight] = scaled(32);
    table_[TitleButtonSize] = scaled(28);
    table_[LeftColumnWidth] = scaled(64);
    table_[PageButtonSize] = scaled(44);
    table_[AvatarSize] = scaled(40);
    table_[FontSizeSmall] = scaled(12);
    table_[FontSizeNormal] = scaled(14);
    table_[FontSizeLarge] = scaled(16);
    table_[CornerRadius] = scaled(4);
    table_[ShakeAmplitude] = scaled(8);
}
