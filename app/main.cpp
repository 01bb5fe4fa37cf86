#include <QApplication>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>

#include "base/at_exit.h"
#include "base/thread_hooks.h"
#include "clientsession.h"
#include "commandlineswitches.h"
#include "companytrust.h"
#include "configstore.h"
#include "crashdump.h"
#include "logger.h"
#include "loginview.h"
#include "logstream.h"
#include "mainwindow.h"
#include "openimmanager.h"
#include "resources.h"
#include "screenmetrics.h"
#include "shellservices.h"
#include "shellstate.h"
#include "startupprobe.h"
#include "translations.h"
#include "uifont.h"
#ifndef Q_OS_WIN
#include "quitsignalwatcher.h"
#endif

int main(int argc, char* argv[]) {
#if !defined(Q_OS_WIN) && !defined(QUELIX_NEEDS_OPENGL)
    // The widgets never draw with OpenGL, yet on X11 the toolkit loads its GL integration
    // (and with it the system's GL driver) at start: about 50 MB and a good part of the
    // start-up time. Left out unless the user's environment asks for it.
    if (!qEnvironmentVariableIsSet("QT_XCB_GL_INTEGRATION"))
        qputenv("QT_XCB_GL_INTEGRATION", "none");
#endif
#ifndef Q_OS_WIN
    // Without TZ, the C library checks /etc/localtime (a stat, sometimes a read) on every
    // local-time conversion, and every log line and message time is one. Naming the file
    // once keeps the same zone without the check; a zone changed while the client runs is
    // picked up at its next start, which is rare enough for a desktop messenger.
    if (!qEnvironmentVariableIsSet("TZ") && QFile::exists(QStringLiteral("/etc/localtime")))
        qputenv("TZ", ":/etc/localtime");
#endif
    // The web engine, loaded later with the first web page, shares the toolkit's GL
    // contexts when there are any, and that must be asked for before the application object
    // exists. Without GL (the X11 default above) it draws in software, which the sidebar's
    // pages are fine with; the driver's 50 MB are not worth it for them.
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    quelixInitResources();
    // Every log line also goes to the toolkit's debug channel. For the desktop client that
    // channel is a developer's: off unless QT_LOGGING_RULES turns it on (which overrides
    // this), since a stderr line per log line is a good share of a message burst's cost and
    // the daily log file has every line anyway.
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));

    const Translations translations(&app);

#ifndef Q_OS_WIN
    // From the start: a termination request during start-up still ends the program
    // through its event loop, cleanly.
    QuitSignalWatcher quitWatcher;
    QObject::connect(&quitWatcher, &QuitSignalWatcher::quitRequested, &app,
                     &QCoreApplication::quit);
#endif

    // Declared last so it is destroyed first, before the translators and the application.
    base::AtExitManager atExitManager;

    ScreenMetrics::instance().init(app.primaryScreen());

    ConfigStore& config = ConfigStore::instance();
    config.init();
    QString trustProblem;
    if (!CompanyTrust::install(&trustProblem))
        QX_LOG << "The company's certificate authority is not used: " << trustProblem;
    UiFont::captureSystemFont();  // before any change: what "跟随系统" goes back to
    if (const int px = ShellState::fontSize(config)) ShellState::applyFontSize(px);
    const QByteArray dumpFolder =
        QDir::toNativeSeparators(config.folderPath(ConfigStore::Dump)).toUtf8();
    crashdump::installCrashHandler(dumpFolder.constData(), 1);
    base::ThreadHooks::setStartHook(crashdump::coverThisThread);
    QX_LOG << "Quelix " << ConfigStore::kVersion << " started";

    OpenIMManager* im = OpenIMManager::instance();

    const CommandLineSwitches::Flags flags = CommandLineSwitches::parse(argc, argv);

    // Never deleted: the main window lives until the process ends.
    auto* mainWindow = new MainWindow(config);
    MainViewDelegate::setInstance(mainWindow);
    ClientSession::connect(mainWindow, im);
    // The IM SDK (its thread, store and emoticon table), the tray, the settings and the
    // update check come once the log-in window is drawn, so they never stand between
    // starting and the window the user waits for; signing in needs a round trip to the
    // back end first, by which time the SDK is up. Without an SDK the client still
    // starts; signing in then reports no server.
    StartupProbe::watch(mainWindow->loginView(), [mainWindow, im, &config] {
        im->init();
        new ShellServices(mainWindow, config, nullptr, mainWindow);
    });
    mainWindow->start(flags.autoLogin, flags.kicked);

    const int code = app.exec();
    QX_LOG << "Quelix exits with code " << code;
    return code;
}
