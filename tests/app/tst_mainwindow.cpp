#include <QtTest>

#include <QAbstractButton>
#include <QLabel>
#include <QMessageBox>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QWindow>

#include <cstring>

#include "configstore.h"
#include "conversationview.h"
#include "directorystore.h"
#include "loginview.h"
#include "mainwindow.h"
#include "resources.h"

class TestMainWindow : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void flashesOnlyWhenBothFlagsAreClear();
    void operationsItDoesNotImplementAreInert();
    void delegateKeepsItsOrder();
    void startKeepsFlagsAndPagesFollowLogin();
    void kickShowsTheLoginPageAndTellsTheUser();
    void windowSizeSurvivesARestart();
    void shakeComesBackToWhereItStarted();
    void trayRoundKeepsThePlaceExactly();
    void messagesReachTheConversationPage();

private:
    QScopedPointer<QTemporaryDir> tmp_;
    QScopedPointer<ConfigStore> store_;
};

void TestMainWindow::initTestCase() { quelixInitResources(); }

void TestMainWindow::init() {
    tmp_.reset(new QTemporaryDir);
    store_.reset(new ConfigStore(tmp_->path() + QStringLiteral("/Quelix")));
    store_->init();
}

void TestMainWindow::cleanup() {
    store_.reset();
    tmp_.reset();
}

void TestMainWindow::flashesOnlyWhenBothFlagsAreClear() {
    MainWindow w(*store_);
    int flashes = 0;
    w.setFlasher([&] { ++flashes; });
    QSignalSpy shown(&w, &MainWindow::showMessageSignal);
    QSignalSpy talkList(&w, &MainWindow::talkListUpdateSignal);
    MainViewDelegate* d = &w;

    ConversationRecord r;
    r.id = QStringLiteral("1001");
    r.nickName = QStringLiteral("小王");
    d->newMessage(r, QStringLiteral("你好"));
    d->newMessage(r, QStringLiteral("在吗"));
    QCOMPARE(flashes, 2);  // once per message
    // The second name stands in for an empty first one.
    QCOMPARE(shown.at(0).at(0).toString(), QStringLiteral("小王"));
    QCOMPARE(shown.at(0).at(1).toString(), QStringLiteral("你好"));

    for (auto flags :
         {std::make_pair(true, false), std::make_pair(false, true), std::make_pair(true, true)}) {
        r.fromSelf = flags.first;
        r.muted = flags.second;
        d->newMessage(r, QStringLiteral("x"));
    }
    QCOMPARE(flashes, 2);

    // No text: nothing to show, but the talk list still hears of it.
    r = ConversationRecord();
    r.name = QStringLiteral("项目组");
    d->newMessage(r, QString());
    QCOMPARE(shown.size(), 5);
    QCOMPARE(talkList.size(), 6);
    QCOMPARE(flashes, 3);
}

void TestMainWindow::operationsItDoesNotImplementAreInert() {
    MainWindow w(*store_);
    MainViewDelegate* d = &w;
    d->loginSuccess(QStringLiteral("7"));
    const int page = d->currentPage();
    QCOMPARE(d->unreadCount(QStringLiteral("7")), 0);
    QVERIFY(d->currentConversationId().isEmpty());
    d->trayToggleChanged(0, true, 2);
    d->tribeDismissed(QStringLiteral("5"));
    d->tribeMemberJoined(QStringLiteral("5"), QStringLiteral("7"));
    d->talkListPreview(QStringLiteral("5"), QStringLiteral("hi"));
    d->ignoreAllMessages();
    QCOMPARE(d->currentPage(), page);
    QVERIFY(!w.isVisible());
}

// Callers built against the delegate reach operations by position, so positions are
// part of the contract: the start entry is the 25th, the tray toggles the 15th, and the
// four tribe events sit together as dismissed, quit, joined, kicked.
void TestMainWindow::delegateKeepsItsOrder() {
#if defined(__GNUC__) && !defined(_WIN32)
    auto slotOf = [](auto member) {
        struct {
            std::uintptr_t ptr;
            std::ptrdiff_t adj;
        } rep;
        static_assert(sizeof(member) == sizeof(rep), "Itanium member pointer");
        std::memcpy(&rep, &member, sizeof rep);
        return int((rep.ptr - 1) / sizeof(void*));
    };
    QCOMPARE(slotOf(&MainViewDelegate::loginSuccess), 0);
    QCOMPARE(slotOf(&MainViewDelegate::trayToggleChanged), 14);
    QCOMPARE(slotOf(&MainViewDelegate::tribeDismissed), 20);
    QCOMPARE(slotOf(&MainViewDelegate::tribeMemberQuit), 21);
    QCOMPARE(slotOf(&MainViewDelegate::tribeMemberJoined), 22);
    QCOMPARE(slotOf(&MainViewDelegate::tribeMemberKicked), 23);
    QCOMPARE(slotOf(&MainViewDelegate::start), 24);
    QCOMPARE(slotOf(&MainViewDelegate::quitApplication), 30);
#else
    QSKIP("member pointer layout checked on the Itanium ABI only");
#endif
}

void TestMainWindow::startKeepsFlagsAndPagesFollowLogin() {
    MainWindow w(*store_);
    QSignalSpy started(&w, &MainWindow::startSignal);
    MainViewDelegate* d = &w;
    d->start(false, true);
    QVERIFY(w.loginView()->isVisible());  // signing in comes first
    QVERIFY(!w.isVisible());
    QVERIFY(!w.startAutoLogin());
    QVERIFY(w.startKicked());
    QCOMPARE(started.size(), 1);
    QCOMPARE(d->currentPage(), int(MainViewDelegate::LoginPage));

    auto* orgButton = w.findChild<QAbstractButton*>(QStringLiteral("orgButton"));
    QVERIFY(orgButton);
    QVERIFY(!orgButton->isEnabled());  // nothing to browse before signing in

    d->loginSuccess(QStringLiteral("1001"));
    emit w.loginView()->LoginSeccess();
    QVERIFY(w.isVisible());
    QCOMPARE(w.ownId(), QStringLiteral("1001"));
    QCOMPARE(d->currentPage(), int(MainViewDelegate::ChatPage));
    QTest::mousePress(orgButton, Qt::LeftButton);
    QCOMPARE(d->currentPage(), int(MainViewDelegate::OrgPage));
    QTest::mousePress(w.findChild<QAbstractButton*>(QStringLiteral("setButton")), Qt::LeftButton);
    QCOMPARE(d->currentPage(), int(MainViewDelegate::SettingPage));
    QVERIFY(w.findChild<QAbstractButton*>(QStringLiteral("setButton"))->isChecked());
    QVERIFY(!orgButton->isChecked());
}

void TestMainWindow::kickShowsTheLoginPageAndTellsTheUser() {
    MainWindow w(*store_);
    MainViewDelegate* d = &w;
    d->start(true, false);
    d->loginSuccess(QStringLiteral("1001"));
    d->setOnline(true);
    QSignalSpy kickedSpy(&w, &MainWindow::kickedSignal);
    d->kicked(QStringLiteral("您的账号在其他地方登录"));
    QCOMPARE(kickedSpy.size(), 1);
    QVERIFY(!w.isOnline());
    QCOMPARE(d->currentPage(), int(MainViewDelegate::LoginPage));
    // The log-in window comes back with the reason.
    QVERIFY(!w.isVisible());
    QVERIFY(w.loginView()->isVisible());
    QCOMPARE(w.loginView()->hint(), QStringLiteral("您的账号在别处登录，请重新登录。"));
}

void TestMainWindow::windowSizeSurvivesARestart() {
    {
        MainWindow w(*store_);
        w.show();
        w.resize(901, 655);
        QTRY_VERIFY(QFile::exists(MainWindow::windowSizeFile(*store_)));
    }
    {
        MainWindow w(*store_);
        QCOMPARE(w.size(), QSize(901, 655));
    }
    // A garbled or absurd size falls back to the default instead of a useless window.
    QFile f(MainWindow::windowSizeFile(*store_));
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("{\"mainWinWidth\": \"99999\", \"mainWinHeight\": \"-5\"}");
    f.close();
    MainWindow w(*store_);
    QVERIFY(w.width() < 99999 && w.width() >= w.minimumWidth());
    QVERIFY(w.height() >= w.minimumHeight());
}

void TestMainWindow::shakeComesBackToWhereItStarted() {
    MainWindow w(*store_);
    QCOMPARE(w.shakeCounter(), 20);
    QCOMPARE(w.shakeTimer()->interval(), 30);
    w.show();
    w.move(200, 150);
    const QPoint origin = w.pos();
    QSet<int> offsets;
    connect(w.shakeTimer(), &QTimer::timeout, this,
            [&] { offsets << (w.pos() - origin).manhattanLength(); });
    w.shakeWindow();
    w.shakeWindow();  // a second request while shaking is ignored
    QTRY_VERIFY_WITH_TIMEOUT(!w.shakeTimer()->isActive(), 5000);
    QCOMPARE(w.pos(), origin);
    QCOMPARE(w.shakeCounter(), 20);
    QVERIFY(offsets.size() > 2);  // it did move, by a fading amount
}

void TestMainWindow::trayRoundKeepsThePlaceExactly() {
    store_->settings().setCloseQuit(false);  // closing goes to the tray
    MainWindow w(*store_);
    w.setTrayAvailable(true);
    w.show();
    w.move(200, 150);
    QTRY_COMPARE(w.pos(), QPoint(200, 150));
    const QRect frame = w.frameGeometry();
    const QRect inside = w.geometry();
    w.close();
    QVERIFY(!w.isVisible());
    // Mapped again, the window is placed anew by the window system: a title bar off.
    w.windowHandle()->setFramePosition(frame.topLeft() - QPoint(0, 10));
    QTRY_COMPARE(w.pos(), frame.topLeft() - QPoint(0, 10));
    w.showMainWindow();
    QTRY_COMPARE(w.frameGeometry(), frame);
    QCOMPARE(w.geometry(), inside);
    // Dragged elsewhere and back to the tray: the new place is the one kept.
    w.move(260, 180);
    w.hideMainWindow();
    w.showMainWindow();
    QTRY_COMPARE(w.pos(), QPoint(260, 180));
}

void TestMainWindow::messagesReachTheConversationPage() {
    QVERIFY(DirectoryStore::instance().load(
        "{\"errorCode\":0,\"results\":{\"allDeptList\":[{\"id\":\"1\"}],"
        "\"allUserList\":[{\"id\":\"101\",\"section\":\"1\",\"realName\":\"王伟\"}]}}"));
    MainWindow w(*store_);
    MainViewDelegate::setInstance(&w);
    MainViewDelegate* d = &w;
    d->newMessageMark("101", 1);  // before sign-in there is no page to show it on
    d->start(true, false);
    d->loginSuccess("100");
    QVERIFY(w.conversationView());
    QCOMPARE(w.pages()->widget(MainViewDelegate::ChatPage),
             static_cast<QWidget*>(w.conversationView()));
    d->newMessageMark("101", 1);
    d->newMessageMark("101", 1);
    QCOMPARE(d->unreadCount("101"), 2);
    QCOMPARE(w.windowTitle(), QStringLiteral("Quelix (2)"));
    QVERIFY(d->currentConversationId().isEmpty());  // received, not opened
    d->openConversation("101");
    QCOMPARE(d->currentConversationId(), QStringLiteral("101"));
    QCOMPARE(d->unreadCount("101"), 0);
    QCOMPARE(w.windowTitle(), QStringLiteral("Quelix"));
    d->setOnline(false);
    QVERIFY(w.conversationView()->netTip()->isVisibleTo(w.conversationView()));
    MainViewDelegate::setInstance(nullptr);
}

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
