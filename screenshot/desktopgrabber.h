#pragma once

#include <QVector>

#include "desktopimage.h"

namespace screenshot {

// Takes the picture of every screen. Qt grabs on X11 and Windows; a Wayland session does
// not hand the screen to ordinary programs (and through XWayland gives black), which is
// reported as a refusal instead of showing a black overlay.
class DesktopGrabber {
public:
    // One screen: its logical geometry and its grab (any pixel ratio).
    struct Piece {
        QRect geometry;
        QImage image;
    };

    static DesktopImage grab();
    // All pieces in one picture of the virtual desktop, at the highest ratio among them so
    // that no screen loses sharpness; gaps between screens stay black.
    static DesktopImage compose(const QVector<Piece>& pieces);
    // Whether a grab that came back is the kind a refusing platform gives: empty, or
    // one flat colour across the whole desktop.
    static bool looksBlank(const QImage& image);
    static QString refusalText();
};

}  // namespace screenshot
