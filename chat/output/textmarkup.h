#pragma once

#include <QString>

namespace qx_output {

// Turns a received message text into the rich text a text item shows. The text is the
// sender's and is only ever shown: every character is escaped, and the only markup added
// is ours (emoticon pictures for known codes, highlighted mentions).
class TextMarkup {
public:
    static constexpr int kEmotionSize = 24;
    // Sized by the document that shows it: the mentions keep its font.
    static QString toHtml(const QString& text);
    // Whether the text mentions `name` ("@name").
    static bool mentions(const QString& text, const QString& name);
};

}  // namespace qx_output
