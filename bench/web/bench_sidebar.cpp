// Sidebar figures, against the reference back end on loopback and on a private Xvfb display:
//   sidebar_first_open_ms  a click on a task card to its page loaded, the first time (the web
//                          engine loads with it)
//   sidebar_reopen_ms      the same after the main window put the sidebar away (median of 5)
//   startup_maps_webengine 1 when the web engine is mapped before any page opens: in the
//                          client started to its log-in window, or in a client whose main
//                          window, chats and sidebar are built; else 0
#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThread>

#include <cstdio>
#include <vector>

#include "../../tests/support/backendlistening.h"
#include "../../tests/support/privatedisplay.h"
#include "benchfigures.h"
#include "clientsession.h"
#include "configstore.h"
#include "mainwindow.h"
#include "manager.h"
#include "openimmanager.h"
#include "resources.h"
#include "sidebarview.h"
#include "taskmsgitem.h"
#include "view.h"
#include "webengineloader.h"

namespace {

bool mapsEngine(const QString& mapsPath) {
    QFile maps(mapsPath);
    return maps.open(QIODevice::ReadOnly) && maps.readAll().contains("libQt5WebEngineCore");
}

// The client itself, started to its log-in window and left to finish its start-up work.
int clientMapsEngine(const QString& home) {
    QProcess quelix;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home);
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("QUELIX_STARTUP_PROBE"), QStringLiteral("1"));
    quelix.setProcessEnvironment(env);
    quelix.setReadChannel(QProcess::StandardError);
    quelix.start(QStringLiteral(QUELIX_BINARY), {QStringLiteral("loader")});
    QElapsedTimer clock;
    clock.start();
    QByteArray err;
    while (!err.contains("login-window-shown") && clock.elapsed() < 20000) {
        quelix.waitForReadyRead(50);
        err += quelix.readAllStandardError();
    }
    if (!err.contains("login-window-shown")) return -1;
    QThread::msleep(1500);
    const bool mapped = mapsEngine(QStringLiteral("/proc/%1/maps").arg(quelix.processId()));
    quelix.terminate();
    if (!quelix.waitForFinished(10000)) quelix.kill();
    quelix.waitForFinished();
    return mapped ? 1 : 0;
}

QString signIn(const QString& base, const QString& user) {
    QNetworkAccessManager network;
    QNetworkRequest request(QUrl(base + QStringLiteral("/work/checkIn.htm?m=MobileLogin")));
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/x-www-form-urlencoded");
    QNetworkReply* reply =
        network.post(request, "username=" + user.toUtf8() + "&password=quelix123&client=3");
    QSignalSpy done(reply, &QNetworkReply::finished);
    done.wait(20000);
    const QString session = QJsonDocument::fromJson(reply->readAll())
                                .object()
                                .value(QStringLiteral("results"))
                                .toObject()
                                .value(QStringLiteral("sessionId"))
                                .toString();
    reply->deleteLater();
    return session;
}

}  // namespace

int main(int argc, char** argv) {
    PrivateDisplay display;
    if (!display.start()) return 1;
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    quelixInitResources();
    QTemporaryDir dir;

    const int clientMapped = clientMapsEngine(dir.filePath(QStringLiteral("client-home")));
    if (clientMapped < 0) {
        std::fprintf(stderr, "the client's log-in window did not come up\n");
        return 1;
    }

    QProcess backend;
    backend.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    backend.start(QStringLiteral(QUELIX_BACKEND_BIN),
                  {QStringLiteral("--data-dir"), dir.filePath(QStringLiteral("backend")),
                   QStringLiteral("--seed-demo"), QStringLiteral("--pbkdf2-iterations"),
                   QStringLiteral("1"), QStringLiteral("--port"), QStringLiteral("0")});
    QByteArray printed;
    const QString base = waitForBackendUrl(backend, &printed);
    QProcess accounts;
    accounts.start(QStringLiteral(QUELIX_BACKEND_BIN),
                   {QStringLiteral("--data-dir"), dir.filePath(QStringLiteral("backend")),
                    QStringLiteral("--print-accounts"), QStringLiteral("2")});
    accounts.waitForFinished(30000);
    const QString user =
        QString::fromUtf8(accounts.readAllStandardOutput().split('\n').value(1).split(' ').first());
    const QString session = base.isEmpty() ? QString() : signIn(base, user);
    if (session.isEmpty()) {
        std::fprintf(stderr, "no back end session:\n%s\n", printed.constData());
        backend.kill();
        backend.waitForFinished();
        return 1;
    }

    // The client as it is assembled after start-up, before any page opens.
    qputenv("HOME", dir.filePath(QStringLiteral("home")).toUtf8());
    ConfigStore::instance().init();
    ConfigStore::instance().setUrl(UrlTable::UrlHome, base);
    auto* window = new MainWindow(ConfigStore::instance());
    ClientSession::connect(window, OpenIMManager::instance());
    SidebarView* sidebar = nullptr;
    for (QWidget* w : QApplication::topLevelWidgets())
        if (auto* s = qobject_cast<SidebarView*>(w)) sidebar = s;
    sidebar->setSessionSource([session] { return session; });
    const bool chatsMapped = WebEngineLoader::engineMapped();

    // A task card of the demo company's first task, in a tribe's message list.
    qx_output::View view(QStringLiteral("50001"), true);
    view.resize(600, 500);
    view.show();
    BaseMsg::MMessage card;
    card.msgId = 1;
    card.kind = BaseMsg::Custom;
    card.summary = QStringLiteral("[任务]");
    card.contentJson = QStringLiteral(
        R"({"msgType":1,"taskId":"70001","projectId":"50001","title":"t","event":0})");
    view.addMessage(card);
    QElapsedTimer wait;
    wait.start();
    while (!view.findChild<qx_output::TaskMsgItem*>() && wait.elapsed() < 5000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    QPushButton* open = nullptr;
    if (auto* item = view.findChild<qx_output::TaskMsgItem*>())
        for (QPushButton* b : item->findChildren<QPushButton*>())
            if (b->text() == QStringLiteral("任务说明")) open = b;
    if (!open) {
        std::fprintf(stderr, "no task card drawn\n");
        return 1;
    }

    auto openOnce = [&]() -> double {
        QSignalSpy loaded(sidebar, &SidebarView::pageLoaded);
        QElapsedTimer clock;
        clock.start();
        open->click();
        if (!loaded.wait(30000) || !loaded.first().first().toBool()) return -1;
        const double ms = double(clock.nsecsElapsed()) / 1e6;
        // The main window comes to the front: the sidebar goes with its page.
        emit qx_output::Manager::instance()->mainWinActiveSignal();
        QCoreApplication::processEvents();
        return ms;
    };
    const double first = openOnce();
    std::vector<double> again;
    for (int i = 0; i < 5; ++i) again.push_back(openOnce());
    backend.terminate();
    backend.waitForFinished(10000);
    if (first < 0 || *std::min_element(again.begin(), again.end()) < 0) {
        std::fprintf(stderr, "a task page did not load\n");
        return 1;
    }
    std::printf("sidebar_first_open_ms=%.1f\n", first);
    std::printf("sidebar_reopen_ms=%.1f\n", bench::percentile(again, 0.5));
    std::printf("startup_maps_webengine=%d\n", (clientMapped == 1 || chatsMapped) ? 1 : 0);
    return 0;
}
