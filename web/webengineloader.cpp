#include "webengineloader.h"

#include <QApplication>
#include <QFile>
#include <QLibrary>
#include <QPointer>
#include <QStringList>
#include <QWidget>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

#include "logger.h"

namespace {

const WebEngineApi* loaded = nullptr;
bool failed = false;

QStringList candidates() {
    QStringList paths;
    const QString named = qEnvironmentVariable("QUELIX_WEBENGINE_MODULE");
    if (!named.isEmpty()) paths << named;
    paths << QCoreApplication::applicationDirPath() + QStringLiteral("/quelix-webengine");
#ifdef QUELIX_WEBENGINE_MODULE_DIR
    paths << QStringLiteral(QUELIX_WEBENGINE_MODULE_DIR "/quelix-webengine");
#endif
    return paths;
}

}  // namespace

const WebEngineApi* WebEngineLoader::api() {
    if (loaded || failed) return loaded;
#ifdef Q_OS_UNIX
    // The engine's sandbox refuses to start for root, and then no page would ever show.
    if (geteuid() == 0 && !qEnvironmentVariableIsSet("QTWEBENGINE_DISABLE_SANDBOX"))
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
#endif
    QString errors;
    for (const QString& path : candidates()) {
        QLibrary module(path);
        auto entry = reinterpret_cast<WebEngineApiEntry>(module.resolve("quelixWebEngineApi"));
        if (entry) {
            loaded = entry();
            if (QCoreApplication* app = QCoreApplication::instance())
                QObject::connect(app, &QCoreApplication::aboutToQuit,
                                 &WebEngineLoader::releaseViews);
            return loaded;
        }
        errors += QStringLiteral(" [%1]").arg(module.errorString());
    }
    failed = true;
    Logger::instance().write(QStringLiteral("web engine unavailable:") + errors);
    return nullptr;
}

bool WebEngineLoader::isLoaded() { return loaded != nullptr; }

void WebEngineLoader::releaseViews() {
    if (!loaded) return;
    QList<QPointer<QWidget>> views;
    for (QWidget* widget : QApplication::allWidgets())
        if (widget->inherits("QWebEngineView")) views << widget;
    for (const QPointer<QWidget>& view : views) {
        if (!view) continue;  // went with a view deleted before it
        // A page still loading is stopped first, so no reply arrives for a page being torn down.
        loaded->stop(view);
        delete view.data();
    }
}

bool WebEngineLoader::engineMapped() {
    QFile maps(QStringLiteral("/proc/self/maps"));
    if (!maps.open(QIODevice::ReadOnly)) return isLoaded();
    return maps.readAll().contains("libQt5WebEngineCore");
}
