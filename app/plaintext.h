#pragma once

#include <QString>

class QLabel;
class QWidget;

// Names, titles, notices, file names and message text come from colleagues and servers:
// they are shown as they are, never read as markup. A label left to guess would take a
// project titled "<img src=...>" for a picture and read that file on the GUI thread.
namespace plaintext {

// A label that shows `text` (and whatever it is given later) as it is.
QLabel* label(const QString& text, QWidget* parent);

// A tool tip that shows `text` as it is. Qt guesses markup in every tool tip, so the
// text goes escaped inside markup of our own, laid out as plain text would be (one line
// per line, no wrapping). Empty text gives no tool tip.
QString toolTip(const QString& text);

}  // namespace plaintext
