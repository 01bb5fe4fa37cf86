// A colleague's day with the client: signed in against a private Prosody and the reference
// back end, with the tray wired as the application wires it, while colleagues (SDK sessions)
// write to it.
#include <QtTest>

#include <QLabel>

#include "../shell/faketraybackend.h"
#include "../support/clientrig.h"
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
#include "shellservices.h"
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
    ClientRig rig_{QStringLiteral(QUELIX_BACKEND_BIN)};
    MainWindow* window_ = nullptr;
    ShellServices* shell_ = nullptr;
    FakeTrayBackend* tray_ = nullptr;
    DemoPerson me_, first_, second_;
    TestSession* firstIm_ = nullptr;
    TestSession* secondIm_ = nullptr;
};

void TestDailyUse::initTestCase() {
    QVERIFY2(rig_.start(3), qPrintable(rig_.error()));
    me_ = rig_.person(0);
    first_ = rig_.person(1);
    second_ = rig_.person(2);

    window_ = rig_.openClient();
    QVERIFY(window_);
    tray_ = new FakeTrayBackend;
    shell_ = attachQuietShell(window_, tray_);
    shell_->tray()->setAlertSource([] { return SystemTrayIcon::Alerts{true, true, true}; });
    QVERIFY(rig_.signIn());

    firstIm_ = rig_.addSession("first", 1, false);
    secondIm_ = rig_.addSession("second", 2, false);
    QVERIFY(rig_.sessionsSignedIn());
}

void TestDailyUse::cleanupTestCase() { rig_.stop(); }

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
