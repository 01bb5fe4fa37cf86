#include "translations.h"

#include <QCoreApplication>

#include "logger.h"

namespace {
bool loadInto(QTranslator& translator, const char* name, QCoreApplication* app) {
    const QString path = QStringLiteral(":/resource/") + QLatin1String(name);
    const bool ok = translator.load(path);
    if (!ok) Logger::instance().write(QStringLiteral("translation not loaded: ") + path);
    app->installTranslator(&translator);
    return ok;
}
}  // namespace

// Qt's qt_zh_CN.qm only names its module catalogues and looks them up relative to the
// working folder when loaded by a path alone, so the modules are loaded one by one.
Translations::Translations(QCoreApplication* app) : app_(app) {
    qtLoaded_ = loadInto(qtBase_, "qtbase_zh_CN.qm", app);
    loadInto(qtMultimedia_, "qtmultimedia_zh_CN.qm", app);
    loadInto(widgets_, "widgets.qm", app);
    loadInto(webEngine_, "qtwebengine_CN.qm", app);
}

Translations::~Translations() {
    for (QTranslator* t : {&webEngine_, &widgets_, &qtMultimedia_, &qtBase_})
        app_->removeTranslator(t);
}
