// The IM core against a scripted SDK registered under the real GUIDs: for what timing
// makes hard to arrange with a real server (heartbeat ticks, callback order).
#include <QtTest>

#include "base/at_exit.h"
#include "base/path_service.h"
#include "base/scoped_refptr.h"
#include "configstore.h"
#include "directorystore.h"
#include "mainviewdelegate.h"
#include "openimmanager.h"
#include "prg/iprg_com.h"
#include "scriptedsdk.h"
#include "sdk/wide_text.h"

using openim::IMUserID;

class TestOpenIMManager : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void loginSuccessStartsOneSessionTimer();
    void heartbeatWithoutAnswerTakesEveryoneOffline();
    void presenceAnswersDecideTheOnlineState();
    void reloginStopsTheRetryFirst();
    void notificationsWaitUntilTheClientIsReady();
    void watermarkKeepsShownMessagesOut();
    void theMarksSecondIsDecidedByIdAcrossRestartsAndAccounts();
    void previewsAndRecords();
    void aBurstAlertsOncePerConversation();
    void failedCustomSendIsSentAgainAsItWas();
    void kickOrRefusalEndsTheSession();
    void aLongBurstIsShownASliceATurn();
    void sendsWaitForTheUploadBeforeThem();
    void historyPagesMarkNothingAsNew();

private:
    base::scoped_refptr<OpenIMManager> manager_;
    Shell shell_;
};

void TestOpenIMManager::initTestCase() {
    ConfigStore::instance().init();
    ConfigStore::instance().setUser(100, 7);
    QVERIFY(DirectoryStore::instance().load(
        "{\"errorCode\":0,\"results\":{\"allDeptList\":[{\"id\":\"1\"}],\"allUserList\":["
        "{\"id\":\"100\",\"section\":\"1\",\"realName\":\"我\"},{\"id\":\"101\",\"section\":\"1\","
        "\"realName\":\"王伟\"},"
        "{\"id\":\"102\",\"section\":\"1\",\"realName\":\"李娜\"}]}}"));
    base::FilePath program;
    PathService::Get(5, &program);
    QCOMPARE(GetPrgCOM()->Init(program), prg::PRG_OK);
    installScriptedSdk();
    MainViewDelegate::setInstance(&shell_);
}

void TestOpenIMManager::init() {
    g_script = Script();
    shell_.calls.clear();
    ConfigStore::instance().settings().setCheckStateMs(100);
    ConfigStore::instance().settings().setNetConnectMs(60000);
    manager_ = new OpenIMManager;
    QVERIFY(manager_->init());
}

void TestOpenIMManager::cleanup() {
    manager_->logout();
    manager_ = nullptr;
}

void TestOpenIMManager::loginSuccessStartsOneSessionTimer() {
    manager_->OnLoginOk({user(L"100")});
    QTRY_VERIFY(manager_->isLoggedIn());
    QVERIFY(manager_->sessionTimerRunning());
    QCOMPARE(shell_.calls.first(), QStringLiteral("loginSuccess 100"));
    QVERIFY(shell_.calls.contains("setOnline 1"));
    QCOMPARE(g_script.syncs, 1);
    QCOMPARE(g_script.presenceRequests, 1);
    QTRY_VERIFY(manager_->msgReady());

    // A second success while the timer runs starts no second timer: one tick per interval.
    manager_->OnLoginOk({user(L"100")});
    QTRY_COMPARE(g_script.syncs, 2);
    manager_->OnPresence(openim::ResultCode(), {});  // answered: the next tick asks again
    QTest::qWait(50);
    const int before = g_script.presenceRequests;
    QTest::qWait(1000);
    const int ticks = g_script.presenceRequests - before;
    QVERIFY2(ticks <= 6,
             qPrintable(QString::number(ticks)));  // a doubled timer would tick 20 times
}

void TestOpenIMManager::heartbeatWithoutAnswerTakesEveryoneOffline() {
    DirectoryStore::instance().setOnline("101", true);
    QSignalSpy marks(manager_.get(), &OpenIMManager::signal_OnlineState);
    manager_->OnLoginOk({user(L"100")});
    QTRY_VERIFY(manager_->isLoggedIn());
    QVERIFY(manager_->presencePending());  // never answered
    QTRY_VERIFY(!manager_->isLoggedIn());
    QCOMPARE(marks.size(), DirectoryStore::instance().colleagueCount());  // one per colleague
    QVERIFY(!DirectoryStore::instance().isOnline("101"));
    QCOMPARE(shell_.calls.last(), QStringLiteral("setOnline 0"));
}

void TestOpenIMManager::presenceAnswersDecideTheOnlineState() {
    manager_->OnLoginOk({user(L"100")});
    QTRY_VERIFY(manager_->isLoggedIn());
    QTRY_VERIFY(!manager_->isLoggedIn());  // the unanswered tick
    shell_.calls.clear();
    QSignalSpy marks(manager_.get(), &OpenIMManager::signal_OnlineState);

    manager_->OnPresence(openim::ResultCode(openim::ResultCode::kTimeout), {});
    QTest::qWait(20);
    QVERIFY(!manager_->isLoggedIn());
    QVERIFY(!shell_.calls.contains("setOnline 1"));

    std::map<IMUserID, openim::IMUserStatus> status;
    status[user(L"102")].state = openim::IMUserStatus::kOnline;
    manager_->OnPresence(openim::ResultCode(), status);
    QTRY_VERIFY(manager_->isLoggedIn());
    QCOMPARE(shell_.calls.count("setOnline 1"), 1);
    QCOMPARE(marks.size(), 1);
    QVERIFY(DirectoryStore::instance().isOnline("102"));
    manager_->OnPresence(openim::ResultCode(), status);  // already online: nothing changes
    QTest::qWait(20);
    QCOMPARE(shell_.calls.count("setOnline 1"), 1);
    QCOMPARE(marks.size(), 1);
}

void TestOpenIMManager::reloginStopsTheRetryFirst() {
    manager_->OnLoginOk({user(L"100")});
    QTRY_VERIFY(manager_->isLoggedIn());
    manager_->OnNetDisConnect({});
    QTRY_VERIFY(manager_->retryTimerRunning());
    QVERIFY(!manager_->sessionTimerRunning());
    QCOMPARE(g_script.relogins, 1);
    QCOMPARE(shell_.calls.last(), QStringLiteral("setOnline 0"));

    shell_.retryRunning = [this] { return manager_->retryTimerRunning(); };
    manager_->OnReLoginFail({});  // silent: the timer keeps going
    QTest::qWait(20);
    QVERIFY(manager_->retryTimerRunning());
    manager_->OnReLoginOk({});
    QTRY_VERIFY(!manager_->retryTimerRunning());
    QVERIFY(manager_->sessionTimerRunning());
    shell_.retryRunning = nullptr;
    QVERIFY(shell_.calls.contains("setOnline 1"));  // told after the timer stopped
    QVERIFY(!shell_.calls.contains("setOnline 1 retrying"));
    QCOMPARE(g_script.syncs, 2);
}

void TestOpenIMManager::notificationsWaitUntilTheClientIsReady() {
    g_script.unread = {textMessage(1, 2000000001, "早上好")};
    QSignalSpy shown(manager_.get(), &OpenIMManager::chatMessage);
    for (int i = 0; i < 3; ++i) manager_->OnIMNotifyMsgsOfSingle(user(L"101"));
    QTRY_COMPARE(manager_->pendingList().size(), 3);  // one per notification, in order
    QCOMPARE(shown.size(), 0);
    manager_->setMsgReady(true);
    QCOMPARE(shown.size(), 1);  // the first shows it, the others find nothing unread
    QVERIFY(manager_->pendingList().isEmpty());
    QCOMPARE(shell_.calls.filter("mark 101 1").size(), 1);
}

void TestOpenIMManager::watermarkKeepsShownMessagesOut() {
    const qint64 mark = 2000000100;
    // A settings file from before the ids were kept: the mark's second stays out.
    ConfigStore::instance().userConfig() = quelix::userconfig_t();
    ConfigStore::instance().userConfig().setPath(
        ConfigStore::instance().filePath(ConfigStore::UserSettings));
    ConfigStore::instance().userConfig().thisTime = mark;
    manager_->setMsgReady(true);
    QSignalSpy shown(manager_.get(), &OpenIMManager::chatMessage);
    g_script.unread = {textMessage(10, mark - 5, "old"), textMessage(11, mark, "at the mark"),
                       textMessage(12, mark + 1, "new")};
    manager_->updateUnreadMsg(user(L"101"));
    QCOMPARE(shown.size(), 1);
    QCOMPARE(shown.first().first().value<BaseMsg::MMessage>().msgId, quint64(12));
    QCOMPARE(ConfigStore::instance().userConfig().thisTime, mark + 1);
    QTRY_VERIFY(g_script.unread.empty());  // shown or skipped, all of it is read now

    // Another message in the same second as the last one shown is not lost.
    g_script.unread = {textMessage(12, mark + 1, "new"), textMessage(13, mark + 1, "same second")};
    manager_->updateUnreadMsg(user(L"101"));
    QCOMPARE(shown.size(), 2);
    QCOMPARE(shown.last().first().value<BaseMsg::MMessage>().msgId, quint64(13));

    // Stored after everything shown yet sent before it (the archive's catch-up after a
    // reconnect): shown; what was shown already stays out.
    g_script.unread = {textMessage(12, mark + 1, "new"), textMessage(14, mark - 3, "late")};
    manager_->updateUnreadMsg(user(L"101"));
    QCOMPARE(shown.size(), 3);
    QCOMPARE(shown.last().first().value<BaseMsg::MMessage>().msgId, quint64(14));
    QCOMPARE(ConfigStore::instance().userConfig().thisTime, mark + 1);

    // The mark survives a restart: what was shown is not shown again.
    manager_->flushWatermark();
    quelix::userconfig_t saved;
    saved.setPath(ConfigStore::instance().filePath(ConfigStore::UserSettings));
    QVERIFY(saved.load());
    QCOMPARE(saved.thisTime, mark + 1);
}

// What a run saved with the mark: the ids shown in its second and the newest id shown.
static void setMark(qint64 time, QSet<quint64> shown, quint64 lastShown) {
    quelix::userconfig_t& config = ConfigStore::instance().userConfig();
    config.thisTime = time;
    config.shownAtThisTime = shown;
    config.shownAtThisTimeKnown = true;
    config.lastShownId = lastShown;
}

static QList<quint64> shownIds(const QSignalSpy& spy) {
    QList<quint64> ids;
    for (const QList<QVariant>& args : spy) ids << args.first().value<BaseMsg::MMessage>().msgId;
    return ids;
}

void TestOpenIMManager::theMarksSecondIsDecidedByIdAcrossRestartsAndAccounts() {
    const qint64 mark = 2000000200;
    // The last run showed 21 in the mark's second and quit before it was marked read; 22
    // came in the same second and was never shown.
    setMark(mark, {21}, 21);
    manager_->setMsgReady(true);
    QSignalSpy shown(manager_.get(), &OpenIMManager::chatMessage);
    g_script.unread = {textMessage(20, mark - 2, "old"), textMessage(21, mark, "shown before"),
                       textMessage(22, mark, "never shown"), textMessage(23, mark + 1, "new")};
    manager_->updateUnreadMsg(user(L"101"));
    QCOMPARE(shownIds(shown), (QList<quint64>{22, 23}));
    QTRY_VERIFY(g_script.unread.empty());
    manager_->flushWatermark();
    quelix::userconfig_t saved;
    saved.setPath(ConfigStore::instance().filePath(ConfigStore::UserSettings));
    QVERIFY(saved.load());
    QCOMPARE(saved.thisTime, mark + 1);
    QCOMPARE(saved.shownAtThisTime, QSet<quint64>{23});
    QVERIFY(saved.shownAtThisTimeKnown);
    QCOMPARE(saved.lastShownId, quint64(23));

    // Another account signs in on this desktop: its own mark and ids decide, not what the
    // first account's run showed (its store's ids mean other messages).
    ConfigStore::instance().setUser(200, 7);
    setMark(mark + 50, {5}, 5);
    shown.clear();
    g_script.unread = {textMessage(5, mark + 50, "shown in its last run"),
                       textMessage(6, mark + 50, "new in that second")};
    manager_->updateUnreadMsg(user(L"101"));
    QCOMPARE(shownIds(shown), QList<quint64>{6});
    ConfigStore::instance().setUser(100, 7);
}

void TestOpenIMManager::failedCustomSendIsSentAgainAsItWas() {
    // A shared card that did not go out: the failure carries the card's own JSON (the
    // page's copy is reshaped for drawing), and sending it again sends exactly that.
    const QString card = QStringLiteral(R"({"msgType":4,"userId":"102","name":"李娜"})");
    openim::IMMessage m = textMessage(0, 2000000500, QString());
    m.sender = user(L"100");
    m.receiver = user(L"101");
    m.content.type = openim::kContentCustom;
    m.content.content = wide_text::fromQ(card);
    m.content.summary = L"[名片]";
    QSignalSpy failed(manager_.get(), &OpenIMManager::sendFailed);
    manager_->OnSent(m, openim::ResultCode(openim::ResultCode::kNotLoggedIn), openim::ResultCode());
    QTRY_COMPARE(failed.size(), 1);
    const auto again = failed.first().first().value<BaseMsg::MMessage>();
    QCOMPARE(again.kind, int(BaseMsg::Custom));
    QCOMPARE(failed.first().at(1).toString(), QStringLiteral("未连接到通讯服务器"));
    g_script.sends.clear();
    manager_->resend(again);
    QCOMPARE(g_script.sends, QStringList{QStringLiteral("[名片]|") + card});
}

void TestOpenIMManager::previewsAndRecords() {
    QCOMPARE(OpenIMManager::previewOf("123456789012"), QStringLiteral("123456789012"));
    QCOMPARE(OpenIMManager::previewOf("1234567890123"), QStringLiteral("123456789012..."));
    QCOMPARE(OpenIMManager::previewOf("a\r\nb\tc"), QStringLiteral("abc"));

    openim::IMMessage custom = textMessage(5, 100, QString());
    custom.content.type = openim::kContentCustom;
    custom.content.content = L"[1,2]";  // not an object
    custom.content.summary = L"[任务]";
    BaseMsg::MMessage m = OpenIMManager::toMessage(custom, "100", false);
    QJsonObject o = QJsonDocument::fromJson(m.contentJson.toUtf8()).object();
    QCOMPARE(o.value("msgType").toInt(), -1);
    QCOMPARE(o.value("summary").toString(), QStringLiteral("[任务]"));
    QVERIFY(o.value("isCustomMsg").toBool());

    custom.content.content = L"{\"msgType\":1,\"content\":\"{\\\"taskId\\\":9}\"}";
    m = OpenIMManager::toMessage(custom, "100", false);
    o = QJsonDocument::fromJson(m.contentJson.toUtf8()).object();
    QCOMPARE(o.value("msgType").toInt(), 1);
    QCOMPARE(o.value("content").toString(), QStringLiteral("{\"taskId\":9}"));

    openim::IMMessage media = textMessage(6, 100, QString());
    media.content.type = openim::kContentImage;
    media.content.content = L"C:\\Users\\me\\Receive\\a.png";
    QCOMPARE(OpenIMManager::toMessage(media, "100", false).mediaPath,
             QStringLiteral("C:/Users/me/Receive/a.png"));
    media.content.type = 77;  // unknown kinds are not shown
    QCOMPARE(OpenIMManager::toMessage(media, "100", false).kind, int(BaseMsg::Hidden));
    // Own messages belong to the peer's conversation.
    openim::IMMessage own = textMessage(7, 100, "hi");
    own.sender = user(L"100");
    own.receiver = user(L"102");
    m = OpenIMManager::toMessage(own, "100", false);
    QVERIFY(m.isSelf);
    QCOMPARE(m.conversationId, QStringLiteral("102"));
}

// A burst shown in one slice marks the conversation's row and alerts once, with the count of
// the slice and the latest text; an alert outside a slice goes out at once; a slice ends with
// the conversation of the newest message last, so it is the one on top of the talk list.
void TestOpenIMManager::aBurstAlertsOncePerConversation() {
    manager_->setMsgReady(true);
    QSignalSpy shown(manager_.get(), &OpenIMManager::chatMessage);
    g_script.unread.clear();
    for (int i = 0; i < 30; ++i)
        g_script.unread.push_back(
            textMessage(100 + i, 2000001000 + i, QStringLiteral("第%1条").arg(i)));
    manager_->updateUnreadMsg(user(L"101"));
    QCOMPARE(shown.size(), 30);
    QCOMPARE(shell_.calls.filter(QRegularExpression("^mark ")), QStringList{"mark 101 30"});
    QCOMPARE(shell_.calls.filter(QRegularExpression("^message ")),
             QStringList{"message 101 第29条"});

    QStringList order;
    AlertCoalescer alerts([&](const AlertCoalescer::Alert& a) {
        order << QStringLiteral("%1x%2 %3").arg(a.record.id).arg(a.count).arg(a.preview);
    });
    auto record = [](const char* id) {
        ConversationRecord r;
        r.id = QString::fromLatin1(id);
        return r;
    };
    alerts.add(record("7"), "now");
    QCOMPARE(order, QStringList{"7x1 now"});
    order.clear();
    {
        const AlertCoalescer::Slice outer(alerts);
        alerts.add(record("1"), "a");
        {
            const AlertCoalescer::Slice inner(alerts);
            alerts.add(record("2"), "b");
            alerts.add(record("1"), "c");
        }
        QVERIFY(order.isEmpty());  // the outer slice has not ended
        alerts.add(record("3"), "d");
    }
    QCOMPARE(order, (QStringList{"2x1 b", "1x2 c", "3x1 d"}));
}

// A kick ends the session as a logout does: no timers, and notifications wait, in order, for
// the next sign-in to be ready. A refused sign-in says why and never reports success, whatever
// code the SDK gave.
void TestOpenIMManager::kickOrRefusalEndsTheSession() {
    QSignalSpy landed(manager_.get(), &OpenIMManager::signal_Landed);
    manager_->OnLoginOk({user(L"100")});
    QTRY_VERIFY(manager_->msgReady());
    manager_->OnKicked({});
    QTRY_COMPARE(landed.size(), 2);
    QCOMPARE(landed.last().first().toBool(), false);
    QVERIFY(shell_.calls.contains("kicked"));
    QVERIFY(!manager_->msgReady());
    QVERIFY(!manager_->isLoggedIn());
    QVERIFY(!manager_->sessionTimerRunning());
    QVERIFY(!manager_->retryTimerRunning());
    g_script.unread = {textMessage(40, 2000000600, "after the kick")};
    QSignalSpy shown(manager_.get(), &OpenIMManager::chatMessage);
    manager_->OnIMNotifyMsgsOfSingle(user(L"101"));
    QTRY_COMPARE(manager_->pendingList().size(), 1);
    QCOMPARE(shown.size(), 0);

    QSignalSpy results(manager_.get(), &OpenIMManager::loginResult);
    manager_->OnLoginFail({openim::ResultCode(openim::ResultCode::kAuthFailed)});
    manager_->OnLoginFail({openim::ResultCode()});  // a failure that came without a code
    QTRY_COMPARE(results.size(), 2);
    QCOMPARE(results.at(0).first().toInt(), int(OpenIMManager::kWrongPassword));
    QCOMPARE(results.at(1).first().toInt(), int(openim::ResultCode::kFailed));
    QVERIFY(shell_.calls.contains(QStringLiteral("loginFailed 登录失败，用户或密码错误")));
}

// Thousands of messages never hold the GUI thread at once: one slice is shown now, the rest a
// slice a turn of the event loop, in order, each slice marking the row once. In the end all
// of it is read and the watermark stands at the newest.
void TestOpenIMManager::aLongBurstIsShownASliceATurn() {
    manager_->setMsgReady(true);
    QSignalSpy shown(manager_.get(), &OpenIMManager::chatMessage);
    const qint64 start = 2000002000;
    QList<quint64> ids;
    g_script.unread.clear();
    for (int i = 0; i < 120; ++i) {
        g_script.unread.push_back(textMessage(1000 + i, start + i, QString::number(i)));
        ids << quint64(1000 + i);
    }
    manager_->updateUnreadMsg(user(L"101"));
    QCOMPARE(shown.size(), 50);
    QTRY_COMPARE(shown.size(), 120);
    QCOMPARE(shownIds(shown), ids);
    QCOMPARE(shell_.calls.filter(QRegularExpression("^mark ")),
             (QStringList{"mark 101 50", "mark 101 50", "mark 101 20"}));
    QTRY_VERIFY(g_script.unread.empty());
    QCOMPARE(ConfigStore::instance().userConfig().thisTime, start + 119);
}

// What is typed after a picture leaves after it: held until the picture's upload is reported,
// while other conversations go on. A picture with no conversation to go through fails at once
// and lets the sends behind it go.
void TestOpenIMManager::sendsWaitForTheUploadBeforeThem() {
    manager_->sendPicture("101", "/tmp/a.png");
    manager_->sendTextOrCustom("101", QString(), "after the picture");
    manager_->sendTextOrCustom("102", QString(), "to someone else");
    QCOMPARE(g_script.sends, (QStringList{"image|/tmp/a.png", "text|to someone else"}));
    openim::IMMessage picture = textMessage(50, 2000003000, "/tmp/a.png");
    picture.sender = user(L"100");
    picture.receiver = user(L"101");
    picture.content.type = openim::kContentImage;
    manager_->OnSent(picture, openim::ResultCode(), openim::ResultCode());
    QTRY_COMPARE(g_script.sends.size(), 3);
    QCOMPARE(g_script.sends.last(), QStringLiteral("text|after the picture"));

    QSignalSpy failed(manager_.get(), &OpenIMManager::sendFailed);
    manager_->sendPicture("gone", "/tmp/b.png");  // no tribe, no colleague: nothing to go through
    manager_->sendTextOrCustom("gone", "[名片]", "{}");
    QCOMPARE(failed.size(), 1);
    QCOMPARE(failed.first().first().value<BaseMsg::MMessage>().kind, int(BaseMsg::Media));
    QCOMPARE(failed.first().at(1).toString(), QStringLiteral("找不到该会话"));
    QTRY_COMPARE(failed.size(), 2);
    QCOMPARE(failed.last().first().value<BaseMsg::MMessage>().kind, int(BaseMsg::Custom));
}

// A page of history goes to the views as history, however new its messages: no mark and no
// alert. The newest page starts over from the newest messages; the next one goes on from there.
void TestOpenIMManager::historyPagesMarkNothingAsNew() {
    manager_->setMsgReady(true);
    QSignalSpy shown(manager_.get(), &OpenIMManager::chatMessage);
    g_script.history = {textMessage(60, 2000004000, "older"), textMessage(61, 2000004001, "newer")};
    manager_->getLatestMsg("101");
    QCOMPARE(g_script.historyResets, 1);
    QTRY_COMPARE(shown.size(), 2);
    QCOMPARE(shownIds(shown), (QList<quint64>{60, 61}));
    for (const QList<QVariant>& args : shown)
        QVERIFY(args.first().value<BaseMsg::MMessage>().isHistory);
    QVERIFY(shell_.calls.filter(QRegularExpression("^(mark|message) ")).isEmpty());
    manager_->getMoreMsg("101");
    QTRY_COMPARE(shown.size(), 4);
    QCOMPARE(g_script.historyResets, 1);
}

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    base::AtExitManager atExit;
    TestOpenIMManager test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_openimmanager.moc"
