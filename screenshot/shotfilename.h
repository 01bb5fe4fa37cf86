#pragma once

#include <QDateTime>
#include <QString>

namespace screenshot {

// The name a saved capture is offered under.
class ShotFileName {
public:
    static QString prefix() { return QStringLiteral("Quelix截图_"); }
    static QString filter() { return QStringLiteral("图片 (*.png *.jpg *.bmp)"); }

    // "Quelix截图_" and the time to the millisecond, as PNG (lossless, which suits text and
    // lines), in folder. Should that name be taken after all (two saves in one
    // millisecond, a clock set back), a counter is added rather than offering to
    // overwrite a capture.
    static QString propose(const QString& folder, const QDateTime& now);
    // The first of the user's desktop folders, or the home folder where there is none.
    static QString desktopFolder();
};

}  // namespace screenshot
