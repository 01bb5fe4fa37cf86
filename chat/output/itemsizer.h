#pragma once

#include <QFont>
#include <QSize>
#include <QString>

namespace qx_output {

struct MessageEntry;

// Row geometry of the output, shared by the list (size hints for rows that have no widget)
// and the items (where to put the avatar, the name and the bubble).
class ItemSizer {
public:
    static constexpr int kAvatar = 36;
    static constexpr int kSide = 12;
    static constexpr int kGap = 8;
    static constexpr int kTop = 8;
    static constexpr int kBottom = 8;
    static constexpr int kPad = 10;
    static constexpr int kTipHeight = 30;
    static constexpr int kPictureMax = 200;
    static const QSize kLoadingSize;
    static const QSize kBrokenSize;
    static const QSize kFileCard;
    static const QSize kTaskCard;
    static const QSize kTableCard;
    static const QSize kPersonalCard;

    // Message text and the sender's name above it, at the user's font size.
    static QFont textFont();
    static int textPixelSize();
    static int namePixelSize();
    // A card's design size at the user's font size.
    static QSize card(const QSize& design);
    static int nameHeight() { return namePixelSize() + 6; }
    static int maxContentWidth(int viewWidth);
    // The laid-out size of rich text no wider than maxWidth.
    static QSize textSize(const QString& html, int maxWidth);
    // A one-line text's size, a stand-in until a row is measured.
    static QSize oneLine();
    // A picture's size in the bubble, scaled to fit; empty when the file is not a picture.
    static QSize pictureSize(const QString& path);
    // Sets the entry's content size for a view of this width.
    static void measure(MessageEntry& entry, int viewWidth);
    static QSize rowSize(const MessageEntry& entry, int viewWidth);
};

}  // namespace qx_output
