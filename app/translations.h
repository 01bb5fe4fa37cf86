#pragma once

#include <QTranslator>

class QCoreApplication;

// The Chinese catalogues compiled in under :/resource/: Qt's own for the standard dialogs
// and buttons (file dialogs, message boxes, the edit menus), the web engine's, and ours
// for the widgets written in English. Installed for as long as the object lives; a
// catalogue that does not load leaves the source texts.
class Translations {
public:
    explicit Translations(QCoreApplication* app);
    ~Translations();
    Translations(const Translations&) = delete;
    Translations& operator=(const Translations&) = delete;

    // Whether Qt's own catalogue (the one the standard dialogs need) loaded.
    bool qtLoaded() const { return qtLoaded_; }

private:
    QCoreApplication* app_;
    QTranslator qtBase_;
    QTranslator qtMultimedia_;
    QTranslator widgets_;
    QTranslator webEngine_;
    bool qtLoaded_ = false;
};
