// A colleague's day with the client: signed in against a private Prosody and the reference
// back end, with the tray wired as the application wires it, while colleagues (SDK sessions)
// write to it.
#include <QtTest>

#include <QLabel>
#include <QLoggingCategory>

#include "../shell/faketraybackend.h"
#include "../support/clientsignin.h"
#include "../support/demobackend.h"
#include "../support/quietshell.h"
#include "base/at_exit.h"
#include "conversationcontentinputedit.h"
#include "conversationcontentinputview.h"
#include "conversationcontentview.h"
#include "conversationview.h"
#include "directorystore.h"
#include "mainwindow.h"
#include "messagelabel.h"
#include "openimmanager.h"
#include "resources.h"
#include "shellservices.h"
#include "support/prosody_server.h"
#include "support/test_session.h"
#include "systemtrayicon.h"
#include "triggermanager.h"
#include "unreadmsgscard.h"

namespace {

QStringList labelTexts(const QWidget* w) {
    QStringList texts;
    for (const QLabel* l : w->findChildren<QLabel*>()) texts << l->text();
    return texts;
}

}  // namespace

class TestDailyUse : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void trayAndPopupOpenTheWaitingConversation();

private:
    ProsodyServer prosody_;
    QTemporaryDir data_;
    MainWindow* window_ = nullptr;
    ShellServices* shell_ = nullptr;
    FakeTrayBackend* tray_ = nullptr;
    std::unique_ptr<DemoBackend> http_;
    DemoPerson me_, first_, second_;
    std::unique_ptr<TestSession> firstIm_, secondIm_;
};

void TestDailyUse::initTestCase() {
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    quelixInitResources();
    qunsetenv("DBUS_SESSION_BUS_ADDRESS");
    QVERIFY2(prosody_.start(), qPrintable(prosody_.lastError()));
    http_ = std::make_unique<DemoBackend>(QStringLiteral(QUELIX_BACKEND_BIN));
    QByteArray printed;
    QVERIFY2(http_->start(prosody_, data_.path(), &printed), printed.constData());
    const QStringList names = http_->userNames(3);
    QCOMPARE(names.size(), 3);
    me_ = http_->signIn(names[0]);
    first_ = http_->signIn(names[1]);
    second_ = http_->signIn(names[2]);
    QVERIFY(!me_.id.isEmpty() && !first_.secret.isEmpty() && !second_.secret.isEmpty());

    ConfigStore::instance().init();
    QVERIFY(OpenIMManager::instance()->init());
    window_ = startClient();
    tray_ = new FakeTrayBackend;
    shell_ = attachQuietShell(window_, tray_);
    shell_->tray()->setAlertSource([] { return SystemTrayIcon::Alerts{true, true, true}; });
    QVERIFY(signInThroughLoginWindow(window_, me_.userName));

    firstIm_ = std::make_unique<TestSession>("first");
    secondIm_ = std::make_unique<TestSession>("second");
    firstIm_->login(prosody_, first_.id, first_.secret);
    secondIm_->login(prosody_, second_.id, second_.secret);
    QVERIFY(waitUntil([&] {
        return firstIm_->probe().count("loginOk") == 1 && secondIm_->probe().count("loginOk") == 1;
    }));
}

void TestDailyUse::cleanupTestCase() {
    MainViewDelegate::setInstance(nullptr);
    http_->stop();
}

void TestDailyUse::trayAndPopupOpenTheWaitingConversation() {
    // The user looks elsewhere (the window hidden to the tray) while two colleagues write.
    window_->hide();
    firstIm_->sendText(me_.id, QStringLiteral("第一条"));
    QTRY_VERIFY_WITH_TIMEOUT(window_->unreadCount(first_.id) == 1, 20000);
    // The pop-up shows the message that just came, not the one before it.
    QCOMPARE(shell_->tray()->popup()->conversationId(), first_.id);
    QTRY_VERIFY(labelTexts(shell_->tray()->popup()).contains(QStringLiteral("第一条")));
    secondIm_->sendText(me_.id, QStringLiteral("第二条：在吗"));
    QTRY_VERIFY_WITH_TIMEOUT(window_->unreadCount(second_.id) == 1, 20000);
    QCOMPARE(shell_->tray()->popup()->conversationId(), second_.id);
    QCOMPARE(shell_->tray()->card()->entries().first().summary, QStringLiteral("第二条：在吗"));
    QTRY_VERIFY(labelTexts(shell_->tray()->popup()).contains(QStringLiteral("第二条：在吗")));

    // The chat button counts what waits, whichever page is up.
    window_->showPage(MainViewDelegate::OrgPage);
    auto* badge = window_->findChild<QLabel*>(QStringLiteral("chatBadge"));
    QVERIFY(badge);
    QVERIFY(!badge->isHidden());
    QCOMPARE(badge->text(), QStringLiteral("2"));

    // A click on the icon opens the newest waiting conversation in the shown window: the
    // page says with whom, and typing goes to its input.
    emit tray_->leftClickedSignal();
    QTRY_VERIFY(window_->isVisible());
    QCOMPARE(window_->currentConversationId(), second_.id);
    QTRY_COMPARE(window_->unreadCount(second_.id), 0);
    ConversationContentView* page = window_->conversationView()->page(second_.id);
    const DirectoryStore::Colleague* colleague = DirectoryStore::instance().colleague(second_.id);
    QVERIFY(colleague);
    QVERIFY2(page->title().startsWith(colleague->displayName()), qPrintable(page->title()));
    QVERIFY2(page->title().contains(colleague->deptName()), qPrintable(page->title()));
    auto* input = qobject_cast<ConversationContentInputView*>(page->input());
    QVERIFY(input);
    QCOMPARE(window_->focusWidget(), static_cast<QWidget*>(input->edit()));
    QCOMPARE(badge->text(), QStringLiteral("1"));

    // A click on the pop-up of a newer message opens that one, even from a hidden window.
    window_->hide();
    firstIm_->sendText(me_.id, QStringLiteral("第三条"));
    QTRY_VERIFY_WITH_TIMEOUT(window_->unreadCount(first_.id) == 2, 20000);
    QCOMPARE(shell_->tray()->popup()->conversationId(), first_.id);
    emit shell_->tray()->popup()->msgTipClicked(first_.id);
    QTRY_VERIFY(window_->isVisible());
    QCOMPARE(window_->currentConversationId(), first_.id);
    QTRY_COMPARE(window_->unreadCount(first_.id), 0);
    QVERIFY(badge->isHidden());
}

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    base::AtExitManager atExit;
    TestDailyUse test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_dailyuse.moc"
