#pragma once

#include <QString>

#include <functional>

class QWidget;

namespace qx_output {

// The boxes and dialogs of the output, in one place so that tests can answer them.
class Prompts {
public:
    // A question with two buttons; true for the first.
    using Ask = std::function<bool(QWidget* parent, const QString& text, const QString& yes,
                                   const QString& no)>;
    // An error box titled "错误提示".
    using Error = std::function<void(QWidget* parent, const QString& text)>;
    // A save dialog; empty when cancelled.
    using SaveName =
        std::function<QString(QWidget* parent, const QString& proposed, const QString& filter)>;

    static bool ask(QWidget* parent, const QString& text, const QString& yes, const QString& no);
    static void error(QWidget* parent, const QString& text);
    static QString saveName(QWidget* parent, const QString& proposed, const QString& filter);

    static void setAsk(Ask ask);
    static void setError(Error error);
    static void setSaveName(SaveName saveName);
};

}  // namespace qx_output
