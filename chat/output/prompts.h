#pragma once

#include <QString>

#include <functional>

class QWidget;

namespace qx_output {

// The boxes and dialogs of the conversation page, in one place so that tests can answer
// them.
class Prompts {
public:
    // A question with two buttons; true for the first.
    using Ask = std::function<bool(QWidget* parent, const QString& text, const QString& yes,
                                   const QString& no)>;
    // An error box titled "错误提示".
    using Error = std::function<void(QWidget* parent, const QString& text)>;
    // A message box with a title and one button.
    using Notice = std::function<void(QWidget* parent, const QString& title, const QString& text,
                                      const QString& button)>;
    // An open-file dialog starting in `folder`; empty when cancelled.
    using OpenName = std::function<QString(QWidget* parent, const QString& title,
                                           const QString& folder, const QString& filter)>;
    // A save dialog proposing a full path; empty when cancelled.
    using SaveName =
        std::function<QString(QWidget* parent, const QString& proposed, const QString& filter)>;

    static bool ask(QWidget* parent, const QString& text, const QString& yes, const QString& no);
    static void error(QWidget* parent, const QString& text);
    // `proposed` is a file name or a path; a bare name is proposed in saveFolder().
    static QString saveName(QWidget* parent, const QString& proposed, const QString& filter);
    static void notice(QWidget* parent, const QString& title, const QString& text,
                       const QString& button);
    static QString openName(QWidget* parent, const QString& title, const QString& filter);

    // Where the dialogs start, never the program's working folder: a save in the folder
    // the user last saved into, else the download folder (where received files are); an
    // open in the folder the user last chose a file from, else the home folder.
    static QString saveFolder();
    static QString openFolder();
    // Forgets the folders last used (tests start afresh).
    static void forgetFolders();

    static void setAsk(Ask ask);
    static void setError(Error error);
    static void setSaveName(SaveName saveName);
    static void setNotice(Notice notice);
    static void setOpenName(OpenName openName);
};

}  // namespace qx_output
