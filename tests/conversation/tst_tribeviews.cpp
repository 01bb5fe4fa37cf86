// The tribe page without servers (the member fetch is ours), and the share flow from a
// colleague's card to a card in another conversation that opens the colleague again.
#include <QtTest>

#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QMovie>
#include <QPushButton>
#include <QScrollBar>
#include <QStackedWidget>

#include "chatlistitemwidget.h"
#include "colleagenamesearchedit.h"
#include "configstore.h"
#include "conversationcontentview.h"
#include "conversationview.h"
#include "directorystore.h"
#include "infocard.h"
#include "listwidget.h"
#include "mainviewdelegate.h"
#include "membericonandnamewidget.h"
#include "personalcarditem.h"
#include "personalinforcard.h"
#include "prompts.h"
#include "resources.h"
#include "tribeconverview.h"
#include "tribemanager.h"
#include "tribememberview.h"
#include "tribetitleview.h"
#include "view.h"

namespace {
QByteArray org() {
    QJsonArray users;
    users.append(
        QJsonObject{{"id", "101"}, {"section", "1"}, {"realName", "王伟"}, {"deptName", "研发部"}});
    users.append(QJsonObject{{"id", "102"}, {"section", "1"}, {"realName", "李娜"}});
    users.append(QJsonObject{{"id", "103"}, {"section", "1"}, {"realName", "张敏"}});
    return QJsonDocument(QJsonObject{{"errorCode", 0},
                                     {"results", QJsonObject{{"allDeptList",
                                                              QJsonArray{QJsonObject{{"id", "1"}}}},
                                                             {"allUserList", users}}}})
        .toJson(QJsonDocument::Compact);
}

// A member fetch that answers when the test says so.
struct FakeFetch {
    struct Call {
        QString tribe;
        std::function<void(bool, const TribeMembers&, const QString&)> done;
    };
    QVector<Call> calls;
    TribeConverView::MemberFetcher fetcher() {
        return [this](const QString& tribe, auto done) { calls.append({tribe, done}); };
    }
};

TribeMembers many(int n) {
    TribeMembers out;
    for (int i = 0; i < n; ++i) out.append({QString::number(5000 + i), QString("成员%1").arg(i)});
    return out;
}

QStringList rowIds(const TribeConverView& v) {
    QStringList out;
    for (int i = 0; i < v.tribeList()->count(); ++i)
        out << v.tribeList()->item(i)->data(Qt::UserRole).toString();
    return out;
}
}  // namespace

class TestTribeViews : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void tribeListSearchAndTalkButtons();
    void membersListAtOnceAndHoverShowsTheCard();
    void titleActionsAndMemberReplies();
    void aRefusedDissolveOrLeaveIsShownOverTheWindow();
    void sharedCardReachesTheConversationAndOpensTheColleague();
    void talkListRowsFollowPresence();
};

void TestTribeViews::initTestCase() {
    quelixInitResources();
    ConfigStore::instance().init();
    ConfigStore::instance().setUser(101, 7);
    DirectoryStore& store = DirectoryStore::instance();
    QVERIFY(store.load(org()));
    store.setSelfId("101");
    store.setCompanyId("7");
    store.setTribes({{"900", "Quelix 项目", "7", "102", "", false},
                     {"901", "合作方群", "7", "101", "sig", false},
                     {"902", "旧项目", "7", "103", "", true}});
    ConversationContentView::setClientOnline(true);
}

void TestTribeViews::tribeListSearchAndTalkButtons() {
    TribeConverView view;
    view.resize(900, 600);
    view.show();
    // Until the projects arrive the page shows its loading animation.
    QCOMPARE(view.loadingLabel()->isVisible(), true);
    QVERIFY(view.loadingLabel()->movie()->isValid());
    view.setLoadingTribes(false);
    // Tribes the user has left are not offered.
    QCOMPARE(rowIds(view), (QStringList{"900", "901"}));
    QVERIFY(view.tribeList()->isVisible());
    QCOMPARE(view.detail()->currentIndex(), 0);  // the empty picture until one is chosen
    QCOMPARE(view.searchEdit()->placeholderText(), QString("搜索群"));

    QSignalSpy open(&view, &TribeConverView::chatButtonClicked);
    // Each row's talk button names its own tribe.
    auto* second =
        view.tribeList()->itemWidget(view.tribeList()->item(1))->findChild<QPushButton*>("rowTalk");
    QTest::mouseClick(second, Qt::LeftButton);
    QCOMPARE(open.count(), 1);
    QCOMPARE(open.last().first().toString(), QString("901"));
    view.showConversationViewsOfId(view.tribeList()->item(0));
    QCOMPARE(open.last().first().toString(), QString("900"));

    // Searching tribes and choosing a result selects its row and loads it.
    FakeFetch fetch;
    view.setMemberFetcher(fetch.fetcher());
    view.searchEdit()->insert("合作");  // typed through an input method
    QCOMPARE(view.searchEdit()->resultList()->count(), 1);
    QVERIFY(!view.tribeList()->isVisible());
    QTest::keyClick(view.searchEdit(), Qt::Key_Return);
    QVERIFY(view.tribeList()->isVisible());
    QCOMPARE(view.tribeList()->currentRow(), 1);
    QCOMPARE(view.currentTribeId(), QString("901"));
    QCOMPARE(view.detail()->currentIndex(), 1);
    QCOMPARE(fetch.calls.size(), 1);
    QCOMPARE(fetch.calls.first().tribe, QString("901"));

    // The user leaves the open tribe: it goes from the list and from the right side.
    DirectoryStore& store = DirectoryStore::instance();
    DirectoryStore::Tribe left = *store.tribe("901");
    left.left = true;
    store.addTribe(left);
    view.reloadTribes();
    QCOMPARE(rowIds(view), QStringList{"900"});
    QCOMPARE(view.detail()->currentIndex(), 0);
    left.left = false;
    store.addTribe(left);

    // No tribes at all: the page says so instead of an empty list.
    DirectoryStore empty;
    TribeConverView nothing(nullptr, &empty);
    nothing.show();
    nothing.setLoadingTribes(false);
    QVERIFY(nothing.emptyLabel()->isVisible());
}

void TestTribeViews::membersListAtOnceAndHoverShowsTheCard() {
    TribeConverView view;
    view.resize(900, 600);
    view.show();
    QVERIFY(QTest::qWaitForWindowExposed(&view));
    FakeFetch fetch;
    view.setMemberFetcher(fetch.fetcher());
    view.setLoadingTribes(false);
    TribeMemberView* members = view.memberView();
    QCOMPARE(members->hint()->text(), QString("选择查看群成员"));

    view.tribeList()->setCurrentRow(0);  // 900, owned by 102
    view.tribeList()->setCurrentRow(1);  // the user moves on before the first answer
    QCOMPARE(fetch.calls.size(), 2);
    // The late answer for the tribe no longer shown changes nothing.
    fetch.calls[0].done(true, many(5), QString());
    QCOMPARE(members->memberCount(), 0);
    TribeMembers list = many(2000);
    list.append(TribeMember{"103", "张敏"});
    list.append(TribeMember{"101", "王伟"});  // the owner of 901, last in the reply
    fetch.calls[1].done(true, list, QString());
    QCOMPARE(members->memberCount(), 2002);
    QCOMPARE(members->heading()->text(), QString("群成员 (2002)"));
    // The owner heads a project tribe's list.
    QCOMPARE(members->members().first().id, QString("101"));

    // Thousands of members, a screenful of row widgets.
    const QVector<MemberIconAndNameWidget*> rows = members->visibleRows();
    QVERIFY(!rows.isEmpty());
    QVERIFY2(members->poolSize() < 40, qPrintable(QString::number(members->poolSize())));
    QCOMPARE(rows.first()->userId(), QString("101"));
    members->scrollBar()->setValue(members->scrollBar()->maximum());
    QCOMPARE(members->visibleRows().last()->userId(), QString("103"));
    QVERIFY(members->poolSize() < 40);

    // Resting on a member shows their card; leaving hides it after a moment.
    MemberIconAndNameWidget* zhang = members->visibleRows().last();
    QEvent enter(QEvent::Enter);
    QApplication::sendEvent(zhang, &enter);
    QVERIFY(view.card()->isVisible());
    QCOMPARE(view.card()->userId(), QString("103"));
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(zhang, &leave);
    QVERIFY(view.card()->isVisible());
    QTRY_VERIFY(!view.card()->isVisible());
    // A member the directory does not know has no card to show.
    members->scrollBar()->setValue(0);
    QApplication::sendEvent(members->visibleRows().at(1), &enter);
    QVERIFY(!view.card()->isVisible());

    // The card's chat and share go where the page sends them.
    QSignalSpy open(&view, &TribeConverView::chatButtonClicked);
    QSignalSpy share(&view, &TribeConverView::shareColleague);
    view.showInfoCardSlot("102");
    view.card()->chatButton()->click();
    QCOMPARE(open.last().first().toString(), QString("102"));
    view.showInfoCardSlot("102");
    view.card()->shareButton()->click();
    QCOMPARE(share.last().first().toString(), QString("102"));
    QVERIFY(!view.card()->isVisible());

    // A failed read says so in the list instead of showing nobody.
    view.tribeList()->setCurrentRow(0);
    fetch.calls.last().done(false, {}, "network down");
    QCOMPARE(members->memberCount(), 0);
    QCOMPARE(members->hint()->text(), QString("群成员读取失败"));
}

void TestTribeViews::aRefusedDissolveOrLeaveIsShownOverTheWindow() {
    // The back end's reason as it came, or what failed in general terms.
    QCOMPARE(TribeManager::failureText(true, false, "  项目有未完成的任务 "),
             QString("解散群失败：项目有未完成的任务"));
    QCOMPARE(TribeManager::failureText(false, false, ""), QString("退出群失败，请稍后重试。"));
    QCOMPARE(TribeManager::failureText(false, true, "Connection refused"),
             QString("退出群失败：网络连接异常，请检查网络后重试。"));

    QWidget window;
    auto* view = new TribeConverView(&window);
    view->setLoadingTribes(false);
    QList<QPair<QWidget*, QString>> shown;
    qx_output::Prompts::setError([&](QWidget* parent, const QString& text) {
        shown.append({parent, text});
    });
    view->showActionFailure("901", "解散群失败：<b>无权</b>");
    qx_output::Prompts::setError({});
    QCOMPARE(shown.size(), 1);
    QVERIFY(shown[0].first && shown[0].first->window() == &window);
    QCOMPARE(shown[0].second, QString("解散群失败：<b>无权</b>"));

    // The dissolve-or-leave question opens over the window the page is in, not mid-screen.
    window.setGeometry(40, 30, 900, 600);
    window.show();
    QWidget* askedOver = nullptr;
    QPoint askedAt;
    Qt::TextFormat format = Qt::AutoText;
    QTimer::singleShot(0, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box) return;
        askedOver = box->parentWidget();
        askedAt = box->frameGeometry().center();
        format = box->textFormat();
        box->button(QMessageBox::No)->click();
    });
    QCOMPARE(TribeManager::askOver(view->titleView(), "是否确定退出该群？"), QMessageBox::No);
    QCOMPARE(askedOver, &window);
    QVERIFY((askedAt - window.frameGeometry().center()).manhattanLength() < 40);
    QCOMPARE(format, Qt::PlainText);
}

void TestTribeViews::titleActionsAndMemberReplies() {
    ConfigStore::instance().setUrl(UrlTable::UrlGroupList,
                                   "http://127.0.0.1:8080/work/project.htm?m=myProjectList");
    TribeConverView view;
    view.setLoadingTribes(false);
    QSignalSpy task(&view, &TribeConverView::openTaskPage);
    QSignalSpy quit(&view, &TribeConverView::quitTribe);
    QSignalSpy open(&view, &TribeConverView::chatButtonClicked);
    TribeTitleView* title = view.titleView();
    QVERIFY(!title->quitButton()->isEnabled());  // nothing chosen yet
    view.tribeList()->setCurrentRow(0);
    QCOMPARE(title->nameLabel()->text(), QString("Quelix 项目"));
    title->taskButton()->click();
    title->quitButton()->click();
    title->talkButton()->click();
    QCOMPARE(task.count(), 1);
    QCOMPARE(task.first().first().toString(),
             QString("http://127.0.0.1:8080/work/project.htm?m=tasks&projectId=900"));
    QCOMPARE(quit.count(), 1);
    QCOMPARE(quit.first().first().toString(), QString("900"));
    QCOMPARE(open.last().first().toString(), QString("900"));

    // A member leaves the tribe; its owner dissolves it, and the button says which.
    QCOMPARE(title->quitButton()->text(), QString("退出群"));
    view.tribeList()->setCurrentRow(1);
    QCOMPARE(title->quitButton()->text(), QString("解散群"));
    view.reloadTribes();  // the projects read again keep the owner's word
    QCOMPARE(title->quitButton()->text(), QString("解散群"));
    view.tribeList()->setCurrentRow(0);
    QCOMPARE(title->quitButton()->text(), QString("退出群"));
    // Ownership is the whole id, and an owner nobody can be matches nobody.
    DirectoryStore::Tribe odd{"990", "x", "7", QString::number(101ull + (1ull << 32)), "", false};
    QVERIFY(!DirectoryStore::instance().ownsTribe(odd));
    odd.ownerId = "abc";
    DirectoryStore other;
    QVERIFY(!other.ownsTribe(odd));  // nobody signed in
    odd.ownerId = "101";
    QVERIFY(DirectoryStore::instance().ownsTribe(odd));

    // A tribe the user left still opens its history, but offers neither tasks nor quitting.
    title->setTribe("902", "旧项目", true);
    QVERIFY(title->talkButton()->isEnabled());
    QVERIFY(!title->taskButton()->isEnabled() && !title->quitButton()->isEnabled());
    title->OnClickedQuit();
    QCOMPARE(quit.count(), 1);

    // Member replies: records without an id are skipped; anything but a list is refused.
    TribeMembers members;
    QString error;
    QVERIFY(TribeConverView::parseMembers(
        R"({"errorCode":0,"results":{"userList":[{"id":"7","realName":"甲"},{"realName":"无名"},)"
        R"({"id":"8","userName":"yi"}]}})",
        &members, &error));
    QCOMPARE(members.size(), 2);
    QCOMPARE(members[0].name, QString("甲"));
    QCOMPARE(members[1].name, QString("yi"));
    QVERIFY(!TribeConverView::parseMembers(R"({"errorCode":1,"errorMsg":"没有权限"})", &members,
                                           &error));
    QCOMPARE(error, QString("没有权限"));
    QVERIFY(!TribeConverView::parseMembers(R"({"errorCode":0,"results":{"userList":3}})", &members,
                                           &error));
    QVERIFY(!TribeConverView::parseMembers("<html>", &members, &error));
}

void TestTribeViews::sharedCardReachesTheConversationAndOpensTheColleague() {
    ConfigStore::instance().talkList().entries.clear();
    ConversationView conversations;
    conversations.showConversation("102", 0);
    conversations.showConversation("900", 0);
    QVector<QPair<QString, QString>> offered;
    conversations.setShareQuestion(
        [&](const QVector<QPair<QString, QString>>& recent, const QString&) {
            offered = recent;
            return QString("900");
        });
    ConversationContentView* tribePage = conversations.page("900");
    QSignalSpy sent(tribePage, &ConversationContentView::sendCustomMsg);
    QCOMPARE(conversations.shareColleague("103"), QString("900"));
    QCOMPARE(offered.size(), 2);
    QCOMPARE(offered.first().first, QString("900"));  // newest first, as in the talk list
    QCOMPARE(sent.count(), 1);
    const QString content = sent.first().at(1).toString();
    QCOMPARE(sent.first().at(2).toString(), QString("[个人名片] 张敏"));

    // Cancelling sends nothing; nor does sharing someone the directory does not know.
    conversations.setShareQuestion([](auto, auto) { return QString(); });
    QVERIFY(conversations.shareColleague("103").isEmpty());
    QVERIFY(conversations.shareColleague("4040").isEmpty());
    // Off line the page refuses and says why.
    conversations.setShareQuestion([](auto, auto) { return QString("900"); });
    ConversationContentView::setClientOnline(false);
    conversations.shareColleague("103");
    ConversationContentView::setClientOnline(true);
    QCOMPARE(sent.count(), 1);

    // The other side's output draws the card; opening it shows that colleague's card.
    qx_output::View other("900", true);
    other.resize(600, 500);
    other.show();
    BaseMsg::MMessage m;
    m.msgId = 77;
    m.conversationId = "900";
    m.isTribe = true;
    m.senderId = "102";
    m.kind = BaseMsg::Custom;
    m.summary = "[个人名片] 张敏";
    m.contentJson = content;
    other.addMessage(m);
    qx_output::PersonalCardItem* card = nullptr;
    QTRY_VERIFY((card = other.findChild<qx_output::PersonalCardItem*>()) != nullptr);
    QCOMPARE(card->sharedUserId(), QString("103"));
    card->openButton()->click();
    QVERIFY(other.infoCard()->isVisible());
    QCOMPARE(other.infoCard()->userId(), QString("103"));
}

void TestTribeViews::talkListRowsFollowPresence() {
    ConfigStore::instance().talkList().entries.clear();
    ConversationView conversations;
    conversations.showConversation("103", 0);
    auto* row = qobject_cast<ChatListItemWidget*>(
        conversations.talkList()->itemWidget(conversations.talkList()->item(0)));
    QVERIFY(row);
    const QImage grey(ConfigStore::instance().filePath(ConfigStore::DefaultUserIconGray));
    const QImage colour(ConfigStore::instance().filePath(ConfigStore::DefaultUserIcon));
    QVERIFY(grey != colour);
    const auto shows = [row](const QImage& picture) {
        for (QLabel* l : row->findChildren<QLabel*>()) {
            const QImage shown = l->pixmap(Qt::ReturnByValue).toImage();
            if (!shown.isNull() && shown == picture.convertToFormat(shown.format())) return true;
        }
        return false;
    };
    QVERIFY(shows(grey));  // nobody is on line until the server says so
    DirectoryStore::instance().setOnline("103", true);
    conversations.setUserOnline("103", true);
    QVERIFY(shows(colour));
    DirectoryStore::instance().setOnline("103", false);
    conversations.setUserOnline("103", false);
    QVERIFY(shows(grey));
}

QTEST_MAIN(TestTribeViews)
#include "tst_tribeviews.moc"
