#pragma once

#include <QDateTime>
#include <QString>

class QWidget;

namespace qx_output {

// What the picture menu of a conversation page does: copies a picture to the clipboard or
// saves it under a name the user picks.
class PictureActions {
public:
    // `page` is the parent of the menu and of the dialogs.
    explicit PictureActions(QWidget* page) : page_(page) {}

    // Opens the menu of the picture at `path` at the cursor.
    void showMenu(const QString& path) const;
    static void copy(const QString& path);
    // Asks where to save the picture and saves it there; false when not saved (the user
    // is told why when it failed).
    bool save(const QString& path) const;
    // The default name proposed when saving a picture: the local time, fourteen digits.
    static QString saveName(const QDateTime& now = QDateTime::currentDateTime());

private:
    QWidget* page_;
};

}  // namespace qx_output
