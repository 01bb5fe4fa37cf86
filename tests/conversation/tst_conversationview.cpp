#include <QtTest>

#include <QCheckBox>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QStackedWidget>

#include "chatlistitemwidget.h"
#include "configstore.h"
#include "conversationcontentview.h"
#include "conversationview.h"
#include "directorystore.h"
#include "mainviewdelegate.h"
#include "resources.h"
#include "tribetitleview.h"

namespace {
// Stands in for the main window: records what the talk list reports to the shell.
class RecordingShell : public MainViewDelegate {
public:
    void newMessageAlert(const QString& id, const QString& name, int count) override {
        alerts << QStringLiteral("%1 %2 %3").arg(id, name).arg(count);
    }
    void totalUnread(int count) override { total = count; }
    void startScreenshot() override { ++screenshots; }
    QStringList alerts;
    int total = -1;
    int screenshots = 0;
};

QByteArray org() {
    return "{\"errorCode\":0,\"results\":{\"allDeptList\":[{\"id\":\"1\",\"parentId\":\"\"}],"
           "\"allUserList\":["
           "{\"id\":\"101\",\"section\":\"1\",\"realName\":\"王伟\"},{\"id\":\"102\",\"section\":"
           "\"1\",\"realName\":\"李娜\"},"
           "{\"id\":\"103\",\"section\":\"1\",\"realName\":\"张敏\"}]}}";
}

QStringList rows(const ConversationView& v) {
    QStringList out;
    for (int i = 0; i < v.talkList()->count(); ++i)
        out << v.talkList()->item(i)->data(Qt::UserRole).toString();
    return out;
}
}  // namespace

class TestConversationView : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void messagesMoveRowsAndCountBadges();
    void removingTheCurrentConversationSelectsTheTop();
    void talkListSurvivesARestartWithNothingUnread();
    void reconnectTipContinuesItsDots();
    void sendsAreGuarded();
    void mutedConversationsCountButNeverRing();

private:
    RecordingShell shell_;
};

void TestConversationView::initTestCase() {
    quelixInitResources();
    ConfigStore::instance().init();
    ConfigStore::instance().setUser(101, 7);
    QVERIFY(DirectoryStore::instance().load(org()));
    DirectoryStore::instance().setCompanyId("7");
    DirectoryStore::instance().setTribes(
        {{"900", "Quelix 项目", "7", "1", "", false}, {"901", "合作方群", "8", "1", "", false}});
    MainViewDelegate::setInstance(&shell_);
}

void TestConversationView::init() {
    ConfigStore::instance().talkList().entries.clear();
    ConfigStore::instance().talkList().save();
    shell_.alerts.clear();
}

void TestConversationView::messagesMoveRowsAndCountBadges() {
    ConversationView view;
    view.showConversation("404", 1);  // nobody we know: no row
    QVERIFY(rows(view).isEmpty());

    view.showConversation("101", 0);  // the user opens 王伟
    view.showConversation("102", 2);
    view.showConversation("103", 1);
    QCOMPARE(rows(view), QStringList({"103", "102", "101"}));
    QCOMPARE(view.currentConversationId(), QStringLiteral("101"));
    QCOMPARE(shell_.total, 3);

    // Already at the top: only the badge changes, the selection stays.
    view.showConversation("103", 4);
    QCOMPARE(rows(view), QStringList({"103", "102", "101"}));
    QCOMPARE(view.unreadCount("103"), 5);
    QCOMPARE(view.currentConversationId(), QStringLiteral("101"));
    QCOMPARE(shell_.alerts.last(), QStringLiteral("103 张敏 5"));

    // Further down: moved to the top with the sum.
    view.showConversation("102", 1);
    QCOMPARE(rows(view), QStringList({"102", "103", "101"}));
    QCOMPARE(view.unreadCount("102"), 3);
    QCOMPARE(shell_.total, 8);

    // Opening a conversation clears it and brings it up.
    view.showConversation("103", 0);
    QCOMPARE(rows(view), QStringList({"103", "102", "101"}));
    QCOMPARE(view.unreadCount("103"), 0);
    QCOMPARE(view.currentConversationId(), QStringLiteral("103"));
    QCOMPARE(view.pages()->currentWidget(), static_cast<QWidget*>(view.page("103")));
    QCOMPARE(shell_.total, 3);
    QCOMPARE(view.page("103"), view.page("103"));  // one page per conversation
    QCOMPARE(view.pages()->count(), 3);            // placeholder, 101, 103
}

void TestConversationView::mutedConversationsCountButNeverRing() {
    ConfigStore& config = ConfigStore::instance();
    config.shieldList().entries.clear();
    config.shieldList().save();
    ConversationView view;
    view.showConversation("102", 1);
    view.showConversation("900", 1);
    auto row = [&](const QString& id) {
        return qobject_cast<ChatListItemWidget*>(
            view.talkList()->itemWidget(view.talkList()->item(rows(view).indexOf(id))));
    };
    QVERIFY(!row("900")->isMuted() && row("900")->mutedMark()->isHidden());

    // The row's menu mutes the tribe: in the mute file at once, and marked on the row.
    QScopedPointer<QMenu> menu(row("900")->makeMenu(nullptr));
    QAction* mute = menu->findChild<QAction*>("muteAction");
    QCOMPARE(mute->text(), QString("消息免打扰"));
    QVERIFY(!mute->isChecked());
    mute->trigger();
    QVERIFY(row("900")->isMuted() && !row("900")->mutedMark()->isHidden());
    quelix::listshield_t saved;
    saved.setPath(config.filePath(ConfigStore::ShieldListFile));
    QVERIFY(saved.load());
    QCOMPARE(saved.entries.size(), 1);
    QCOMPARE(saved.entries[0].id, quint64(900));
    QCOMPARE(saved.entries[0].role, quint64(1));  // a tribe

    // Muted: the badge and the total still count, nothing alerts; others still do.
    shell_.alerts.clear();
    view.showConversation("900", 2);
    view.showConversation("102", 1);
    QCOMPARE(view.unreadCount("900"), 3);
    QCOMPARE(shell_.total, 5);
    QCOMPARE(shell_.alerts, QStringList{"102 李娜 2"});
    // The mark follows the row when it moves, and a new view reads the list.
    view.showConversation("900", 1);
    QVERIFY(row("900")->isMuted());
    QCOMPARE(shell_.alerts.size(), 1);
    ConversationView again;
    again.showConversation("900", 1);
    QCOMPARE(shell_.alerts.size(), 1);

    // The tribe's title shows it muted; unmuted from the row's menu (checked now): alerts
    // again, the mark and the title's tick go, the file empties.
    TribeTitleView title;
    title.setTribe("900", QStringLiteral("Quelix 项目"), false);
    QVERIFY(title.muteBox()->isChecked());
    QScopedPointer<QMenu> second(row("900")->makeMenu(nullptr));
    QAction* unmute = second->findChild<QAction*>("muteAction");
    QVERIFY(unmute->isChecked());
    unmute->trigger();
    QVERIFY(!row("900")->isMuted() && row("900")->mutedMark()->isHidden());
    QVERIFY(!title.muteBox()->isChecked());
    QVERIFY(saved.load());
    QVERIFY(saved.entries.isEmpty());
    view.showConversation("900", 1);
    QCOMPARE(shell_.alerts.last(), QString("900 Quelix 项目 5"));

    // The title's box mutes as the menu does, row and file alike.
    title.muteBox()->click();
    QVERIFY(row("900")->isMuted());
    QVERIFY(saved.load());
    QCOMPARE(saved.entries.size(), 1);
    title.muteBox()->click();
    QVERIFY(!row("900")->isMuted());
}

void TestConversationView::removingTheCurrentConversationSelectsTheTop() {
    ConversationView view;
    view.showConversation("101", 1);
    view.showConversation("102", 1);
    view.showConversation("103", 0);
    QCOMPARE(view.currentConversationId(), QStringLiteral("103"));
    view.deleteMemberFromMemberList("103");
    QCOMPARE(rows(view), QStringList({"102", "101"}));
    QCOMPARE(view.currentConversationId(), QStringLiteral("102"));
    QCOMPARE(view.unreadCount("102"), 0);  // opened, so read
    QCOMPARE(shell_.total, 1);
    view.deleteMemberFromMemberList("101");
    view.deleteMemberFromMemberList("102");
    QCOMPARE(view.pages()->currentIndex(), 0);  // back to the placeholder
}

void TestConversationView::talkListSurvivesARestartWithNothingUnread() {
    {
        ConversationView view;
        view.showConversation("101", 3);
        view.showConversation("900", 2);
        view.showConversation("102", 1);
        view.deleteMemberFromMemberList("102");
    }
    ConfigStore::instance().setUser(101, 7);  // as at the next sign-in
    ConversationView again;
    again.loadTalkList();
    QCOMPARE(rows(again), QStringList({"900", "101"}));
    QCOMPARE(again.totalUnread(), 0);
    QCOMPARE(ConfigStore::instance().talkList().entries.at(1).role, quint64(1));  // the tribe

    // At sign-in the tribes come after the directory: their rows come back when they are
    // known, where they were, below what arrived meanwhile.
    const QVector<DirectoryStore::Tribe> tribes{{"900", "Quelix 项目", "7", "1", "", false},
                                                {"901", "合作方群", "8", "1", "", false}};
    DirectoryStore::instance().setTribes({});
    ConversationView third;
    third.loadTalkList();
    QCOMPARE(rows(third), QStringList({"101"}));
    third.showConversation("103", 1);
    DirectoryStore::instance().setTribes(tribes);
    third.restoreTalkList();
    third.restoreTalkList();  // once only
    QCOMPARE(rows(third), QStringList({"103", "900", "101"}));
    QCOMPARE(third.unreadCount("103"), 1);
}

void TestConversationView::reconnectTipContinuesItsDots() {
    ConversationView view;
    QStringList seen;
    view.setOnline(false);  // the tip shows its first text at once
    QVERIFY(view.netTip()->isVisibleTo(&view));
    seen << view.netTip()->text();
    for (int i = 0; i < 2; ++i) {
        view.netTipTimeout();
        seen << view.netTip()->text();
    }
    view.setOnline(true);
    QVERIFY(!view.netTip()->isVisibleTo(&view));
    view.setOnline(false);  // a second outage goes on where the first one stopped
    seen << view.netTip()->text();
    view.netTipTimeout();
    seen << view.netTip()->text();

    const QStringList cycle = {"断线重连中.", "断线重连中..", "断线重连中..."};
    const int start = cycle.indexOf(seen.first());
    QVERIFY(start >= 0);
    for (int i = 0; i < seen.size(); ++i) QCOMPARE(seen.at(i), cycle.at((start + i) % 3));
}

void TestConversationView::sendsAreGuarded() {
    ConversationContentView::setClientOnline(false);
    ConversationContentView user("101", false);
    QSignalSpy text(&user, &ConversationContentView::sendTextMsg);
    QVERIFY(!user.sendText("hi"));
    QCOMPARE(user.tips().last(), QStringLiteral("您目前处于离线状态，暂时无法发送消息。"));
    ConversationContentView::setClientOnline(true);
    QVERIFY(user.sendText("hi"));
    QCOMPARE(text.size(), 1);

    ConversationContentView partner("901", true);
    QVERIFY(!partner.sendText("hi"));
    QCOMPARE(partner.tips().last(), QStringLiteral("暂不支持在非本公司群中发言。"));
    QVERIFY(!partner.sendMedia("/tmp/a.png"));
    QCOMPARE(partner.tips().last(), QStringLiteral("暂不支持在非本公司群中传输文件。"));
    QVERIFY(!partner.sendCustom("{}", "[任务]"));
    ConversationContentView own("900", true);
    QVERIFY(own.sendMedia("/tmp/a.png"));
    QVERIFY(own.tips().isEmpty());
}

QTEST_MAIN(TestConversationView)
#include "tst_conversationview.moc"
