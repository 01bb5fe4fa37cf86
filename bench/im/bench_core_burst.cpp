// 10,000 one-to-one messages from one colleague to a signed-in client core with no
// conversation open, through a private Prosody; then the same burst to an SDK session
// alone, the baseline. Also how long the GUI thread went without an event-loop turn
// during the burst, and the core's memory once signed in and idle.
#include <QXmppClient.h>
#include <QXmppConfiguration.h>
#include <QXmppMessage.h>
#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <cstdio>

#include "base/at_exit.h"
#include "base/bind.h"
#include "base/ref_counted.h"
#include "benchfigures.h"
#include "benchxmpp.h"
#include "configstore.h"
#include "directorystore.h"
#include "mainviewdelegate.h"
#include "openim/iconversation_service.h"
#include "openimmanager.h"
#include "support/prosody_server.h"
#include "support/test_session.h"

namespace {

constexpr int kMessages = 10000;
constexpr int kTimeoutMs = 120000;

// Runs the event loop (as the GUI does) until `done` or the time is up.
bool runUntil(const std::function<bool()>& done, int timeoutMs) {
    QEventLoop loop;
    QTimer check;
    QObject::connect(&check, &QTimer::timeout, &loop, [&] {
        if (done()) loop.quit();
    });
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    check.start(2);
    if (!done()) loop.exec();
    return done();
}

// The main window's part, as far as the core calls it.
class CountingShell : public MainViewDelegate {
public:
    void newMessageMark(const QString&, int) override { ++marks; }
    void newMessage(const ConversationRecord&, const QString&) override { ++messages; }
    int marks = 0;
    int messages = 0;
};

class Counter : public base::RefCountedThreadSafe<Counter> {
public:
    void OnNewMessage(openim::IMUserID) { ++count; }
    std::atomic<int> count{0};
};

// A colleague sending from a thread of its own, as from another machine: the burst must
// not be sent from the GUI thread whose stalls are measured.
class Sender {
public:
    Sender(const ProsodyServer& server, const QString& user) {
        thread_.start();
        client_ = new QXmppClient;
        client_->moveToThread(&thread_);
        const QXmppConfiguration c = bench::xmppConfig(server, user);
        QMetaObject::invokeMethod(client_, [this, c] {
            QObject::connect(client_, &QXmppClient::connected, client_,
                             [this] { connected_ = true; });
            client_->connectToServer(c);
        });
    }
    ~Sender() {
        QMetaObject::invokeMethod(
            client_, [this] { delete client_; }, Qt::BlockingQueuedConnection);
        thread_.quit();
        thread_.wait();
    }
    bool waitConnected() {
        return runUntil([this] { return connected_.load(); }, 15000);
    }
    void sendBurst(const QString& to) {
        QMetaObject::invokeMethod(client_, [this, to] {
            for (int i = 0; i < kMessages; ++i) {
                QXmppMessage m(QString(), to, QStringLiteral("第%1条消息 burst message").arg(i));
                m.setType(QXmppMessage::Chat);
                m.setId(QStringLiteral("c%1").arg(i));
                client_->sendPacket(m);
            }
        });
    }

private:
    QThread thread_;
    QXmppClient* client_ = nullptr;
    std::atomic<bool> connected_{false};
};

}  // namespace

int main(int argc, char** argv) {
    // Everything of this run lives in a scratch folder, the client's documents included.
    QTemporaryDir scratch;
    qputenv("HOME", (scratch.path() + QStringLiteral("/home")).toLocal8Bit());
    qunsetenv("XDG_CONFIG_HOME");
    qputenv("QUELIX_TEST_TMP", scratch.path().toLocal8Bit());
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    base::AtExitManager atExit;

    ProsodyServer server;
    if (!server.start()) {
        std::fprintf(stderr, "prosody: %s\n", qPrintable(server.lastError()));
        return 1;
    }
    for (const char* user : {"20001", "20002", "20003", "20004"})
        server.registerUser(QLatin1String(user), "pw");

    // The client core, signed in as 20002; 20001 is a colleague it knows.
    ConfigStore::instance().init();
    ConfigStore::instance().setUser(20002, 1);
    DirectoryStore::instance().load(
        "{\"errorCode\":0,\"results\":{\"allDeptList\":[{\"id\":\"1\"}],\"allUserList\":["
        "{\"id\":\"20001\",\"section\":\"1\",\"realName\":\"发送者\"},{\"id\":\"20002\","
        "\"section\":\"1\"}]}}");
    CountingShell shell;
    MainViewDelegate::setInstance(&shell);
    OpenIMManager* core = OpenIMManager::instance();
    if (!core->init()) return 1;
    std::atomic<int> shown{0};
    QObject::connect(core, &OpenIMManager::chatMessage, [&] { ++shown; });
    LoginUser me;
    me.id = me.imAccount = QStringLiteral("20002");
    me.imSecret = QStringLiteral("pw");
    me.imHost = server.host();
    me.imPort = server.port();
    me.imDomain = server.domain();
    int loginCode = -1;
    QObject::connect(core, &OpenIMManager::loginResult, [&](int code) { loginCode = code; });
    core->login(me);
    if (!runUntil([&] { return loginCode == 0 && core->msgReady(); }, 20000)) {
        std::fprintf(stderr, "the core did not sign in (%d)\n", loginCode);
        return 1;
    }
    runUntil([] { return false; }, 1000);
    const long idleRss = bench::rssKb();

    // The burst, with a watch on the GUI thread's event loop.
    QElapsedTimer sinceTurn;
    qint64 maxStallMs = 0;
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, [&] {
        maxStallMs = std::max(maxStallMs, sinceTurn.elapsed());
        sinceTurn.restart();
    });
    Sender sender(server, QStringLiteral("20001"));
    if (!sender.waitConnected()) return 1;
    QElapsedTimer clock;
    clock.start();
    sinceTurn.start();
    watch.start(1);
    sender.sendBurst(QStringLiteral("20002@") + server.domain());
    const bool coreDone = runUntil([&] { return shown >= kMessages; }, kTimeoutMs);
    const qint64 coreMs = clock.elapsed();
    watch.stop();
    if (!coreDone) {
        std::fprintf(stderr, "the core showed %d of %d messages\n", int(shown), kMessages);
        return 1;
    }
    std::printf("core: %d messages shown, %d talk-list marks, in %lld ms\n", int(shown),
                shell.marks, (long long)coreMs);

    // The baseline: an SDK session alone receiving the same burst.
    TestSession sdk(QStringLiteral("bench-sdk"));
    base::scoped_refptr<Counter> counter(new Counter);
    sdk.conversationService()->RegisterNewMessageCallback(
        base::Bind(&Counter::OnNewMessage, counter.get()));
    sdk.login(server, QStringLiteral("20004"), QStringLiteral("pw"));
    if (!runUntil([&] { return sdk.probe().count("loginOk") == 1; }, 20000)) return 1;
    Sender sender2(server, QStringLiteral("20003"));
    if (!sender2.waitConnected()) return 1;
    clock.restart();
    sender2.sendBurst(QStringLiteral("20004@") + server.domain());
    // A report may cover several messages (one per sender and commit), so the store is
    // counted, once per report.
    int reports = 0;
    bool all = false;
    const QString from = QStringLiteral("20003");
    if (!runUntil(
            [&] {
                if (counter->count != reports) {
                    reports = counter->count;
                    all = sdk.unreadCount(from) >= kMessages;
                }
                return all;
            },
            kTimeoutMs)) {
        std::fprintf(stderr, "the SDK alone stored %d of %d messages\n", sdk.unreadCount(from),
                     kMessages);
        return 1;
    }
    const qint64 sdkMs = clock.elapsed();
    std::printf("sdk_alone_burst_ms=%lld\n", (long long)sdkMs);
    std::printf("core_vs_sdk_ratio=%.2f\n", double(coreMs) / double(std::max<qint64>(1, sdkMs)));

    std::printf("core_burst_ms=%lld\n", (long long)coreMs);
    std::printf("core_burst_gui_max_stall_ms=%lld\n", (long long)maxStallMs);
    std::printf("core_idle_rss_kb=%ld\n", idleRss);
    core->logout();
    return 0;
}
