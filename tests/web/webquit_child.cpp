// The client as start-up assembles it (the application object first, the exit manager, a
// main window that lives until the process ends, the session wiring that makes the sidebar),
// showing the work-platform page and then the page given as argument in the sidebar. It
// says on its standard output what happened ("worksite-loaded", "sidebar-title",
// "sidebar-loaded") and quits as the tray's and the settings' "exit" do once a line comes
// on its standard input.
#include <QApplication>
#include <QSocketNotifier>
#include <QTimer>
#include <QUrl>

#include <cstdio>

#include <unistd.h>

#include "base/at_exit.h"
#include "clientsession.h"
#include "configstore.h"
#include "mainviewdelegate.h"
#include "mainwindow.h"
#include "manager.h"
#include "openimmanager.h"
#include "resources.h"
#include "sidebarview.h"
#include "worksitepage.h"

namespace {

void say(const char* what) {
    std::printf("%s\n", what);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    quelixInitResources();
    base::AtExitManager atExitManager;

    const QUrl page(app.arguments().value(1));
    ConfigStore& config = ConfigStore::instance();
    config.init();
    config.setUrl(UrlTable::UrlHome,
                  page.adjusted(QUrl::RemovePath | QUrl::RemoveQuery).toString() + "/");
    auto* window = new MainWindow(config);
    MainViewDelegate::setInstance(window);
    ClientSession::connect(window, OpenIMManager::instance());
    SidebarView* sidebar = nullptr;
    for (QWidget* w : QApplication::topLevelWidgets())
        if (auto* s = qobject_cast<SidebarView*>(w)) sidebar = s;
    if (!sidebar) return 3;

    // The sidebar opens once the main window has shown its page (showing the window
    // activates it, which puts the sidebar away).
    QObject::connect(window->workSitePage(), &WorkSitePage::pageLoaded, window, [=] {
        say("worksite-loaded");
        qx_output::Manager::instance()->openTaskPage(page.toString());
        QWidget* view = sidebar->webView();
        if (!view) return say("no-web-view");
        // The title comes with the page's first bytes: its renderer runs, loaded or not.
        auto* poll = new QTimer(view);
        QObject::connect(poll, &QTimer::timeout, view, [view, poll] {
            if (view->property("title").toString() != QLatin1String("task")) return;
            poll->stop();
            say("sidebar-title");
        });
        poll->start(20);
    });
    QObject::connect(sidebar, &SidebarView::pageLoaded, window,
                     [](bool ok) { say(ok ? "sidebar-loaded" : "sidebar-failed"); });
    window->show();
    window->showPage(MainViewDelegate::WorkCirclePage);

    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, window, [window, &input] {
        char line[64];
        (void)::read(STDIN_FILENO, line, sizeof line);
        input.setEnabled(false);
        window->quitApplication();
    });
    return app.exec();
}
