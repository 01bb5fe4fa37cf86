#pragma once

#include <QByteArray>

// Draws colleagues' avatars: a symmetric five-by-five pattern in a colour derived from the
// user id, so every colleague has a distinct, stable picture without any image files. Plain
// pixel work, so it needs no fonts and no GUI application object.
class AvatarPainter {
public:
    static constexpr int kSize = 150;

    static QByteArray png(qint64 userId);
};
