// Tribes through a private Prosody: project rooms kept by an administrator as the back end
// keeps them, SDK sessions as members, a plain XMPP client beside them.
#include <QXmppClient.h>
#include <QXmppElement.h>
#include <QXmppLogger.h>
#include <QXmppMessage.h>
#include <QXmppPresence.h>
#include <QFile>
#include <QImage>
#include <QMutex>
#include <QProcess>
#include <QtTest>

#include <memory>

#include "base/bind.h"
#include "openim/im_message_content.h"
#include "openim/itribe.h"
#include "openim/itribe_media_service.h"
#include "openim/itribe_service.h"
#include "openim/service_guids.h"
#include "sdk/wide_text.h"
#include "support/prosody_server.h"
#include "support/prosody_trust.h"
#include "support/room_admin.h"
#include "support/test_session.h"

using wide_text::fromQ;
using wide_text::toQ;

namespace {

// The back end's account on the server (its only administrator, which alone makes rooms).
QString kAuthority;

// Records a session's tribe callbacks (SDK thread) for the test thread.
class TribeProbe : public base::RefCountedThreadSafe<TribeProbe> {
public:
    void OnLoaded() { note(QStringLiteral("loaded")); }
    void OnJoined(openim::IMTribeID t, openim::IMUserID u) { note(event("joined", t, u)); }
    void OnQuit(openim::IMTribeID t, openim::IMUserID u) { note(event("quit", t, u)); }
    void OnKicked(openim::IMTribeID t, openim::IMUserID u) { note(event("kicked", t, u)); }
    void OnRole(openim::IMTribeID, openim::IMUserID, openim::IMUserID) {}
    void OnName(openim::IMTribeID t, prg::PrgStringT<wchar_t> n) {
        note(QStringLiteral("name:%1:%2").arg(t.tribeId).arg(toQ(n)));
    }
    void OnNotice(openim::IMTribeID, prg::PrgStringT<wchar_t>) {}
    void OnDismissed(const openim::IMTribeID& t) {
        note(QStringLiteral("dismissed:%1").arg(t.tribeId));
    }
    void OnInfo(openim::IMTribeID) {}
    void OnMessage(openim::IMTribeID t) { note(QStringLiteral("message:%1").arg(t.tribeId)); }
    void OnDownload(openim::ResultCode r, openim::DownloadTribeMediaResult d) {
        note(QStringLiteral("download:%1:%2").arg(r.code).arg(toQ(d.localPath)));
    }
    void OnSent(openim::IMTribeMessage, openim::ResultCode sent, openim::ResultCode up) {
        if (sent.pending()) return;  // the outcome follows once the server confirms
        note(QStringLiteral("sent:%1:%2").arg(sent.code).arg(up.code));
    }
    void OnHistory(prg::PrgStringT<wchar_t>, openim::ResultCode r,
                   std::vector<openim::IMTribeMessage> page) {
        QMutexLocker guard(&lock_);
        pages_.append(page);
        events_ << QStringLiteral("history:%1").arg(r.code);
    }

    int count(const QString& prefix) const {
        QMutexLocker guard(&lock_);
        int n = 0;
        for (const QString& e : events_) n += e.startsWith(prefix) ? 1 : 0;
        return n;
    }
    QStringList events() const {
        QMutexLocker guard(&lock_);
        return events_;
    }
    QList<std::vector<openim::IMTribeMessage>> pages() const {
        QMutexLocker guard(&lock_);
        return pages_;
    }

private:
    friend class base::RefCountedThreadSafe<TribeProbe>;
    ~TribeProbe() = default;
    static QString event(const char* what, openim::IMTribeID t, const openim::IMUserID& u) {
        return QStringLiteral("%1:%2:%3")
            .arg(QLatin1String(what))
            .arg(t.tribeId)
            .arg(toQ(u.account));
    }
    void note(const QString& e) {
        QMutexLocker guard(&lock_);
        events_ << e;
    }
    mutable QMutex lock_;
    QStringList events_;
    QList<std::vector<openim::IMTribeMessage>> pages_;
};

template <class T>
base::scoped_refptr<T> fetch(prg::IPrgCOM* root, const char* module, const char* iface) {
    base::scoped_refptr<T> out;
    out.adopt(root->GetService<T>(module, iface));
    return out;
}

// An SDK session with its tribe callbacks registered, signed in with the company authority.
struct Member {
    explicit Member(const QString& name) : session(name), probe(new TribeProbe) {
        auto tribes = service();
        TribeProbe* p = probe.get();
        tribes->RegisterTribesLoaded(base::Bind(&TribeProbe::OnLoaded, p));
        tribes->RegisterMemberJoined(base::Bind(&TribeProbe::OnJoined, p));
        tribes->RegisterMemberQuit(base::Bind(&TribeProbe::OnQuit, p));
        tribes->RegisterMemberKicked(base::Bind(&TribeProbe::OnKicked, p));
        tribes->RegisterRoleChanged(base::Bind(&TribeProbe::OnRole, p));
        tribes->RegisterNameChanged(base::Bind(&TribeProbe::OnName, p));
        tribes->RegisterNoticeChanged(base::Bind(&TribeProbe::OnNotice, p));
        tribes->RegisterTribeDismissed(base::Bind(&TribeProbe::OnDismissed, p));
        tribes->RegisterTribeInfoChanged(base::Bind(&TribeProbe::OnInfo, p));
        tribes->RegisterNewMessage(base::Bind(&TribeProbe::OnMessage, p));
        fetch<openim::ITribeMediaService>(session.root(), openim::kTribeMediaModule,
                                          openim::kTribeMediaInterface)
            ->RegisterDownloadCallback(base::Bind(&TribeProbe::OnDownload, p));
    }
    base::scoped_refptr<openim::ITribeService> service() {
        return fetch<openim::ITribeService>(session.root(), openim::kTribeModule,
                                            openim::kTribeInterface);
    }
    base::scoped_refptr<openim::ITribe> tribe(quint64 id) { return session.tribe(id); }
    bool signIn(const ProsodyServer& server, const QString& account, QList<quint64> tribes) {
        const int before = probe->count(QStringLiteral("loaded"));
        session.login(server, account, QStringLiteral("pw-") + account, kAuthority);
        if (!waitUntil([&] {
                return session.probe().count("loginOk") + session.probe().count("reloginOk") > 0;
            }))
            return false;
        std::vector<openim::IMTribeID> ids;
        for (quint64 t : tribes) ids.push_back(openim::IMTribeID(t));
        service()->SyncTribes(ids, {});
        if (!waitUntil([&] { return probe->count(QStringLiteral("loaded")) > before; }))
            return false;
        // Each room answers on its own; rooms that refuse us count as answered.
        return waitUntil([&] {
            for (quint64 t : tribes)
                if (tribe(t)->IsMember() && !tribe(t)->IsInRoom()) return false;
            return true;
        });
    }
    void sendText(quint64 id, const QString& text) {
        tribe(id)->SendText(fromQ(text), base::Bind(&TribeProbe::OnSent, probe.get()));
    }
    std::vector<openim::IMTribeMessage> unread(quint64 id) {
        std::vector<openim::IMTribeMessage> out;
        tribe(id)->GetUnreadMessages(&out);
        return out;
    }

    TestSession session;
    base::scoped_refptr<TribeProbe> probe;
};

QStringList texts(const std::vector<openim::IMTribeMessage>& messages) {
    QStringList out;
    for (const auto& m : messages) out << toQ(m.content.content);
    return out;
}

}  // namespace

class TribesTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void membersExchangeTextCustomAndPicture();
    void offlineMemberCatchesUpOnceAndInOrder();
    void removalAndDissolutionReachEveryone();
    void outsidersCanNeitherJoinNorRead();
    void memberAddedWhileOnlineJoinsAtOnce();
    void plainClientTakesPart();
    void cardsForOneColleagueComeInTheAssistantsName();
    void forgedArchiveIdsNeverReachAMember();
    void aMemberSpeaksOnlyForHimself();
    void aRoomThatForgotUsTakesUsBack();
    // Restarts the server: last.
    void storedHistoryOutlivesAnEmptiedArchive();

private:
    ProsodyServer server_;
    std::unique_ptr<RoomAdmin> admin_;
};

void TribesTest::initTestCase() {
    // Rooms are asked whether they still have us every half second, not every five minutes.
    qputenv("QUELIX_ROOM_PING_MS", "500");
    QVERIFY2(server_.start(), qPrintable(server_.lastError()));
    for (const char* user : {"alice", "bob", "carol", "mallory", "pat"})
        QVERIFY(server_.registerUser(QLatin1String(user), QStringLiteral("pw-") + user));
    kAuthority = server_.adminJid().section('@', 0, 0);
    admin_ = std::make_unique<RoomAdmin>(server_, kAuthority, server_.adminSecret());
    QVERIFY(admin_->connectNow());
}

void TribesTest::membersExchangeTextCustomAndPicture() {
    QVERIFY(admin_->createRoom(1001, QStringLiteral("Quelix 项目"), QStringLiteral("alice"),
                               {QStringLiteral("bob"), QStringLiteral("carol")}));
    Member alice(QStringLiteral("alice")), bob(QStringLiteral("bob")),
        carol(QStringLiteral("carol"));
    QVERIFY(alice.signIn(server_, QStringLiteral("alice"), {1001}));
    QVERIFY(bob.signIn(server_, QStringLiteral("bob"), {1001}));
    QVERIFY(carol.signIn(server_, QStringLiteral("carol"), {1001}));
    QVERIFY(alice.tribe(1001)->IsMember() && bob.tribe(1001)->IsMember());

    QImage picture(24, 16, QImage::Format_RGB32);
    picture.fill(Qt::darkMagenta);
    const QString path = alice.session.dataFolder() + QStringLiteral("/p.png");
    QVERIFY(picture.save(path));
    alice.sendText(1001, QStringLiteral("大家好 [微笑]"));
    alice.tribe(1001)->SendCustom(fromQ(QStringLiteral(R"({"msgType":5,"userId":"5"})")),
                                  fromQ(QStringLiteral("[任务]")),
                                  base::Bind(&TribeProbe::OnSent, alice.probe.get()));
    alice.tribe(1001)->SendImage(base::FilePath::FromUTF8Unsafe(path.toStdString()), 24, 16,
                                 base::Bind(&TribeProbe::OnSent, alice.probe.get()));
    QVERIFY(waitUntil([&] { return alice.probe->count("sent:") == 3; }, 20000));
    QCOMPARE(alice.probe->count("sent:0:0"), 3);

    for (Member* m : {&bob, &carol}) {
        QVERIFY2(waitUntil([&] { return m->unread(1001).size() == 3; }, 20000),
                 qPrintable(m->probe->events().join(' ')));
        const auto got = m->unread(1001);
        QCOMPARE(toQ(got[0].content.content), QStringLiteral("大家好 [微笑]"));
        QCOMPARE(toQ(got[0].sender.account), QStringLiteral("alice"));
        QCOMPARE(got[0].tribe.tribeId, quint64(1001));
        QCOMPARE(got[1].content.type, openim::kContentCustom);
        QCOMPARE(toQ(got[1].content.summary), QStringLiteral("[任务]"));
        QCOMPARE(got[2].content.type, openim::kContentImage);
        QImage arrived(toQ(got[2].content.content));
        QCOMPARE(arrived.size(), QSize(24, 16));
        QVERIFY(m->probe->count("message:1001") >= 1);
        QCOMPARE(m->probe->count("download:0:"), 1);
    }
    // Our own messages come back from the room once, as sent, never as unread.
    QCOMPARE(alice.tribe(1001)->GetUnreadCount(), 0);
    alice.tribe(1001)->GetHistory(10, base::Bind(&TribeProbe::OnHistory, alice.probe.get()));
    QVERIFY(waitUntil([&] { return alice.probe->pages().size() == 1; }));
    QCOMPARE(int(alice.probe->pages().first().size()), 3);

    // Reading marks exactly what was read.
    std::vector<std::uint64_t> first{bob.unread(1001)[0].msgId};
    bob.tribe(1001)->MarkMessagesRead(first);
    QCOMPARE(bob.tribe(1001)->GetUnreadCount(), 2);
}

void TribesTest::offlineMemberCatchesUpOnceAndInOrder() {
    QVERIFY(admin_->createRoom(1002, QStringLiteral("catch-up"), QStringLiteral("alice"),
                               {QStringLiteral("carol")}));
    Member alice(QStringLiteral("alice2")), carol(QStringLiteral("carol2"));
    QVERIFY(alice.signIn(server_, QStringLiteral("alice"), {1002}));
    QVERIFY(carol.signIn(server_, QStringLiteral("carol"), {1002}));
    alice.sendText(1002, QStringLiteral("before"));
    QVERIFY(waitUntil([&] { return carol.unread(1002).size() == 1; }));
    carol.tribe(1002)->MarkRead();

    carol.session.logout();
    QVERIFY(waitUntil([&] { return carol.session.probe().count("logouted") == 1; }));
    const int total = 500;
    for (int i = 0; i < total; ++i) alice.sendText(1002, QStringLiteral("m%1").arg(i));
    QVERIFY(waitUntil([&] { return alice.probe->count("sent:0:0") == total + 1; }, 60000));

    QVERIFY(carol.signIn(server_, QStringLiteral("carol"), {1002}));
    QVERIFY2(waitUntil([&] { return carol.tribe(1002)->GetUnreadCount() >= total; }, 60000),
             qPrintable(QString::number(carol.tribe(1002)->GetUnreadCount())));
    QStringList expected;
    for (int i = 0; i < total; ++i) expected << QStringLiteral("m%1").arg(i);
    // Lines that came live while the archive was read settle into their place.
    QVERIFY(waitUntil([&] { return texts(carol.unread(1002)) == expected; }, 10000));
    QCOMPARE(texts(carol.unread(1002)), expected);

    // A reconnect asks the archive again from where it stopped: nothing comes twice.
    carol.session.logout();
    QVERIFY(waitUntil([&] { return carol.session.probe().count("logouted") == 2; }));
    QVERIFY(carol.signIn(server_, QStringLiteral("carol"), {1002}));
    QTest::qWait(1500);
    QCOMPARE(carol.tribe(1002)->GetUnreadCount(), total);

    // Another desktop of carol's, with nothing stored, reads the room back from its archive
    // a page at a time; pages meet within one second and keep the room's order.
    carol.session.logout();
    QVERIFY(waitUntil([&] { return carol.session.probe().count("logouted") == 3; }));
    Member fresh(QStringLiteral("carol2-fresh"));
    QVERIFY(fresh.signIn(server_, QStringLiteral("carol"), {1002}));
    QStringList back;
    for (int page = 1; page < 100; ++page) {
        fresh.tribe(1002)->GetHistory(30, base::Bind(&TribeProbe::OnHistory, fresh.probe.get()));
        QVERIFY(waitUntil([&] { return fresh.probe->pages().size() == page; }));
        const QStringList got = texts(fresh.probe->pages().last());
        if (got.isEmpty()) break;
        back = got + back;
    }
    QCOMPARE(back, QStringList{QStringLiteral("before")} + expected);
}

void TribesTest::removalAndDissolutionReachEveryone() {
    QVERIFY(admin_->createRoom(1003, QStringLiteral("leaving"), QStringLiteral("alice"),
                               {QStringLiteral("bob"), QStringLiteral("carol")}));
    Member alice(QStringLiteral("alice3")), bob(QStringLiteral("bob3")),
        carol(QStringLiteral("carol3"));
    QVERIFY(alice.signIn(server_, QStringLiteral("alice"), {1003}));
    QVERIFY(bob.signIn(server_, QStringLiteral("bob"), {1003}));
    QVERIFY(carol.signIn(server_, QStringLiteral("carol"), {1003}));

    // The back end removes bob: the room puts him out, the notices tell everyone.
    QVERIFY(admin_->setAffiliation(1003, QStringLiteral("bob"), QStringLiteral("none"),
                                   QStringLiteral("kicked")));
    for (const char* to : {"alice", "bob", "carol"})
        admin_->notice(QLatin1String(to), 1003, QStringLiteral("kicked"), QStringLiteral("bob"));
    QVERIFY(waitUntil([&] { return bob.probe->count("kicked:1003:bob") == 1; }));
    QVERIFY(waitUntil([&] { return alice.probe->count("kicked:1003:bob") == 1; }));
    QVERIFY(waitUntil([&] { return carol.probe->count("kicked:1003:bob") == 1; }));
    QTest::qWait(500);
    QCOMPARE(bob.probe->count("kicked:1003:bob"), 1);  // room and notice: told once
    QVERIFY(!bob.tribe(1003)->IsMember());

    alice.sendText(1003, QStringLiteral("without bob"));
    QVERIFY(waitUntil([&] { return carol.unread(1003).size() == 1; }));
    QTest::qWait(500);
    QCOMPARE(bob.tribe(1003)->GetUnreadCount(), 0);
    // A notice from anyone but the company's account changes nothing.
    RoomAdmin forger(server_, QStringLiteral("mallory"), QStringLiteral("pw-mallory"));
    QVERIFY(forger.connectNow());
    forger.notice(QStringLiteral("carol"), 1003, QStringLiteral("dismissed"), QString());

    // Dissolving destroys the room for everyone still in it.
    QVERIFY(admin_->destroyRoom(1003));
    QVERIFY(waitUntil([&] { return alice.probe->count("dismissed:1003") == 1; }));
    QVERIFY(waitUntil([&] { return carol.probe->count("dismissed:1003") == 1; }));
    QCOMPARE(bob.probe->count("dismissed:1003"), 0);
    QVERIFY(!carol.tribe(1003)->IsMember());
}

void TribesTest::outsidersCanNeitherJoinNorRead() {
    QVERIFY(admin_->createRoom(1004, QStringLiteral("closed"), QStringLiteral("alice"), {}));
    Member alice(QStringLiteral("alice4")), mallory(QStringLiteral("mallory4"));
    QVERIFY(alice.signIn(server_, QStringLiteral("alice"), {1004}));
    alice.sendText(1004, QStringLiteral("secret plan"));
    QVERIFY(waitUntil([&] { return alice.probe->count("sent:0:0") == 1; }));

    // Mallory claims the tribe; the room refuses her.
    mallory.session.login(server_, QStringLiteral("mallory"), QStringLiteral("pw-mallory"),
                          kAuthority);
    QVERIFY(waitUntil([&] { return mallory.session.probe().count("loginOk") == 1; }));
    mallory.service()->SyncTribes({openim::IMTribeID(1004)}, {});
    QTest::qWait(1000);
    QVERIFY(!mallory.tribe(1004)->IsInRoom());
    mallory.tribe(1004)->SendText(fromQ(QStringLiteral("let me in")),
                                  base::Bind(&TribeProbe::OnSent, mallory.probe.get()));
    QVERIFY(waitUntil([&] { return mallory.probe->count("sent:") == 1; }));
    QCOMPARE(mallory.probe->count("sent:0:"), 0);
    mallory.tribe(1004)->GetHistory(10, base::Bind(&TribeProbe::OnHistory, mallory.probe.get()));
    QVERIFY(waitUntil([&] { return mallory.probe->pages().size() == 1; }));
    QVERIFY(mallory.probe->pages().first().empty());
    // Not even a direct archive request gets anything out of the room.
    QProcess raw;
    raw.start(QStringLiteral("/usr/bin/python3"),
              {QFINDTESTDATA("plain_client.py"), QStringLiteral("mallory@") + server_.domain(),
               QStringLiteral("pw-mallory"), server_.host(), QString::number(server_.port()),
               QStringLiteral("x"), QStringLiteral("--raw"),
               QStringLiteral("<iq type='set' id='q1' to='1004@conference.%1'><query "
                              "xmlns='urn:xmpp:mam:2' queryid='q1'/></iq>")
                   .arg(server_.domain())});
    QVERIFY(raw.waitForFinished(30000));
    QVERIFY(!raw.readAllStandardOutput().contains("secret plan"));
    QCOMPARE(alice.tribe(1004)->GetUnreadCount(), 0);
}

void TribesTest::memberAddedWhileOnlineJoinsAtOnce() {
    QVERIFY(admin_->createRoom(1005, QStringLiteral("new team"), QStringLiteral("alice"), {}));
    Member alice(QStringLiteral("alice5")), pat(QStringLiteral("pat5"));
    QVERIFY(alice.signIn(server_, QStringLiteral("alice"), {1005}));
    QVERIFY(pat.signIn(server_, QStringLiteral("pat"), {}));
    QVERIFY(admin_->setAffiliation(1005, QStringLiteral("pat"), QStringLiteral("member")));
    admin_->notice(QStringLiteral("pat"), 1005, QStringLiteral("joined"), QStringLiteral("pat"),
                   QStringLiteral("new team"));
    admin_->notice(QStringLiteral("alice"), 1005, QStringLiteral("joined"), QStringLiteral("pat"));
    QVERIFY(waitUntil([&] { return pat.probe->count("joined:1005:pat") == 1; }, 10000));
    QVERIFY(waitUntil([&] { return alice.probe->count("joined:1005:pat") == 1; }));
    QCOMPARE(toQ(pat.tribe(1005)->GetName()), QStringLiteral("new team"));
    alice.sendText(1005, QStringLiteral("welcome"));
    QVERIFY(waitUntil([&] { return pat.unread(1005).size() == 1; }));
}

void TribesTest::plainClientTakesPart() {
    QVERIFY(admin_->createRoom(1006, QStringLiteral("mixed"), QStringLiteral("alice"),
                               {QStringLiteral("pat")}));
    Member alice(QStringLiteral("alice6"));
    QVERIFY(alice.signIn(server_, QStringLiteral("alice"), {1006}));
    // pat uses a plain client: joins, says one line, prints the first group line it sees.
    QProcess plain;
    plain.start(
        QStringLiteral("/usr/bin/python3"),
        {QFINDTESTDATA("plain_room_client.py"), QStringLiteral("pat@") + server_.domain(),
         QStringLiteral("pw-pat"), server_.host(), QString::number(server_.port()),
         QStringLiteral("1006@conference.") + server_.domain(), QStringLiteral("hi from slixmpp")});
    QVERIFY(waitUntil([&] { return alice.unread(1006).size() == 1; }, 20000));
    QCOMPARE(texts(alice.unread(1006)), QStringList{QStringLiteral("hi from slixmpp")});
    QCOMPARE(toQ(alice.unread(1006)[0].sender.account), QStringLiteral("pat"));
    alice.sendText(1006, QStringLiteral("hello plain client"));
    QVERIFY(plain.waitForFinished(30000));
    QVERIFY2(plain.readAllStandardOutput().contains("hello plain client"),
             qPrintable(plain.readAllStandardError()));
}

void TribesTest::cardsForOneColleagueComeInTheAssistantsName() {
    auto first = std::make_unique<TestSession>(QStringLiteral("pat-cards"));
    TestSession& pat = *first;
    pat.login(server_, QStringLiteral("pat"), QStringLiteral("pw-pat"), kAuthority);
    QVERIFY(waitUntil([&] { return pat.probe().count("loginOk") == 1; }));
    const QString assistant = QStringLiteral("9001");
    const QString card = QStringLiteral("{\"msgType\":1,\"taskId\":\"5\",\"event\":1}");

    // The company's account carries it; it lands in the assistant's conversation, once
    // however often it is sent.
    admin_->relayCard(QStringLiteral("pat"), assistant, QStringLiteral("task-direct-1"), card);
    admin_->relayCard(QStringLiteral("pat"), assistant, QStringLiteral("task-direct-1"), card);
    QVERIFY(waitUntil([&] { return pat.unreadCount(assistant) == 1; }));
    const std::vector<openim::IMMessage> got = pat.unread(assistant);
    QCOMPARE(toQ(got.front().sender.account), assistant);
    QCOMPARE(got.front().content.type, int(openim::kContentCustom));
    QCOMPARE(toQ(got.front().content.content), card);

    // Nobody else may speak in another's name, and the company's account only with cards.
    RoomAdmin forger(server_, QStringLiteral("mallory"), QStringLiteral("pw-mallory"));
    QVERIFY(forger.connectNow());
    forger.relayCard(QStringLiteral("pat"), assistant, QStringLiteral("forged-1"), card);
    forger.relayCard(QStringLiteral("pat"), QStringLiteral("alice"), QStringLiteral("forged-2"),
                     card);
    admin_->relayCard(QStringLiteral("pat"), assistant, QStringLiteral("task-direct-2"),
                      QStringLiteral("plain words"), 1);
    admin_->relayCard(QStringLiteral("pat"), QStringLiteral("pat"), QStringLiteral("task-direct-3"),
                      card);
    // A card sent after them arrives, so they were handled (and refused) by then.
    admin_->relayCard(QStringLiteral("pat"), assistant, QStringLiteral("task-direct-4"), card);
    QVERIFY(waitUntil([&] { return pat.unreadCount(assistant) == 2; }));
    QTest::qWait(300);
    QCOMPARE(pat.unreadCount(assistant), 2);
    QCOMPARE(pat.unreadCount(QStringLiteral("mallory")), 0);
    QCOMPARE(pat.unreadCount(QStringLiteral("alice")), 0);
    QCOMPARE(pat.unreadCount(kAuthority), 0);

    // Read and asked for again as history (a new session's first page), they are there.
    pat.markRead(assistant);
    first.reset();
    TestSession again(QStringLiteral("pat-cards"));
    again.login(server_, QStringLiteral("pat"), QStringLiteral("pw-pat"), kAuthority);
    QVERIFY(waitUntil([&] { return again.probe().count("loginOk") == 1; }));
    again.requestHistory(assistant, 7);
    QVERIFY(waitUntil([&] { return again.probe().count("history") == 1; }));
    QCOMPARE(again.probe().count("history:0"), 1);
    QCOMPARE(int(again.probe().historyPages().last().size()), 2);
}

// A member may put any element into a room message, including an archive id in another
// member's name; the server must drop that before it reaches the member it names, while
// the room's own id (which members use to drop duplicates) stays.
void TribesTest::forgedArchiveIdsNeverReachAMember() {
    QVERIFY(admin_->createRoom(1007, QStringLiteral("ids"), QStringLiteral("alice"),
                               {QStringLiteral("bob")}));
    const QString room = admin_->roomJid(1007);
    QXmppClient alice, bob;
    QXmppLogger bobWire;
    bobWire.setLoggingType(QXmppLogger::SignalLogging);
    bobWire.setMessageTypes(QXmppLogger::ReceivedMessage);
    bob.setLogger(&bobWire);
    QString received;
    connect(&bobWire, &QXmppLogger::message, this,
            [&](QXmppLogger::MessageType, const QString& text) { received += text; });
    for (QXmppClient* c : {&alice, &bob}) {
        const QString user = c == &alice ? QStringLiteral("alice") : QStringLiteral("bob");
        QXmppConfiguration config;
        config.setHost(server_.host());
        config.setPort(server_.port());
        trustProsody(config, server_);
        config.setDomain(server_.domain());
        config.setUser(user);
        config.setPassword(QStringLiteral("pw-") + user);
        config.setResource(QStringLiteral("raw"));
        config.setAutoReconnectionEnabled(false);
        c->connectToServer(config);
        QVERIFY(waitUntil([c] { return c->isConnected(); }));
        QXmppPresence join;
        join.setTo(room + QLatin1Char('/') + user);
        QXmppElement x;
        x.setTagName(QStringLiteral("x"));
        x.setAttribute(QStringLiteral("xmlns"), QStringLiteral("http://jabber.org/protocol/muc"));
        join.setExtensions({x});
        c->sendPacket(join);
    }
    QVERIFY(waitUntil([&] { return received.contains(room + QStringLiteral("/alice")); }));

    const QString bobJid = QStringLiteral("bob@") + server_.domain();
    QXmppMessage forged(QString(), room, QStringLiteral("archived for bob?"));
    forged.setType(QXmppMessage::GroupChat);
    for (const QString& by : {bobJid, QStringLiteral("BOB@") + server_.domain().toUpper()}) {
        QXmppElement id;
        id.setTagName(QStringLiteral("stanza-id"));
        id.setAttribute(QStringLiteral("xmlns"), QStringLiteral("urn:xmpp:sid:0"));
        id.setAttribute(QStringLiteral("by"), by);
        id.setAttribute(QStringLiteral("id"), QStringLiteral("forged-") + by.left(3));
        forged.setExtensions(forged.extensions() << id);
    }
    alice.sendPacket(forged);
    QVERIFY(waitUntil([&] { return received.contains(QStringLiteral("archived for bob?")); }));
    QVERIFY2(!received.contains(QStringLiteral("forged-")), qPrintable(received.right(1500)));
    QVERIFY2(received.contains(QStringLiteral("by=\"%1\"").arg(room)) ||
                 received.contains(QStringLiteral("by='%1'").arg(room)),
             qPrintable(received.right(1500)));
}

// Mallory, on a plain client, takes alice's account name as her nick while alice is away,
// claims alice's address inside her messages and posts a task card. Bob (live) and carol
// (from the archive, signing in later) keep every line under mallory, and the card as text.
void TribesTest::aMemberSpeaksOnlyForHimself() {
    QVERIFY(admin_->createRoom(
        1008, QStringLiteral("trust"), QStringLiteral("alice"),
        {QStringLiteral("bob"), QStringLiteral("carol"), QStringLiteral("mallory")}));
    Member bob(QStringLiteral("bob-trust"));
    QVERIFY(bob.signIn(server_, QStringLiteral("bob"), {1008}));
    // Carol knows the tribe already and is away while mallory writes: she reads it from the
    // room's archive when she comes back.
    Member carol(QStringLiteral("carol-trust"));
    QVERIFY(carol.signIn(server_, QStringLiteral("carol"), {1008}));
    carol.session.logout();
    QVERIFY(waitUntil([&] { return carol.session.probe().count("logouted") == 1; }));

    QXmppClient mallory;
    QXmppConfiguration config;
    config.setHost(server_.host());
    config.setPort(server_.port());
    trustProsody(config, server_);
    config.setDomain(server_.domain());
    config.setUser(QStringLiteral("mallory"));
    config.setPassword(QStringLiteral("pw-mallory"));
    config.setAutoReconnectionEnabled(false);
    mallory.connectToServer(config);
    QVERIFY(waitUntil([&] { return mallory.isConnected(); }));
    const QString room = admin_->roomJid(1008);
    QXmppPresence join;
    join.setTo(room + QStringLiteral("/alice"));
    QXmppElement muc;
    muc.setTagName(QStringLiteral("x"));
    muc.setAttribute(QStringLiteral("xmlns"), QStringLiteral("http://jabber.org/protocol/muc"));
    join.setExtensions({muc});
    mallory.sendPacket(join);
    QTest::qWait(500);

    auto claim = [&] {
        QXmppElement item;
        item.setTagName(QStringLiteral("item"));
        item.setAttribute(QStringLiteral("jid"), QStringLiteral("alice@") + server_.domain());
        item.setAttribute(QStringLiteral("affiliation"), QStringLiteral("owner"));
        QXmppElement x;
        x.setTagName(QStringLiteral("x"));
        x.setAttribute(QStringLiteral("xmlns"),
                       QStringLiteral("http://jabber.org/protocol/muc#user"));
        x.appendChild(item);
        return x;
    };
    QXmppMessage spoof(QString(), room, QStringLiteral("I am alice"));
    spoof.setType(QXmppMessage::GroupChat);
    spoof.setExtensions({claim()});
    QXmppElement card;
    card.setTagName(QStringLiteral("content"));
    card.setAttribute(QStringLiteral("xmlns"), QStringLiteral("urn:quelix:im:1"));
    card.setAttribute(QStringLiteral("kind"), QStringLiteral("16"));
    card.setValue(QStringLiteral(R"({"msgType":1,"taskId":"66","event":1})"));
    QXmppMessage fakeTask(QString(), room, QStringLiteral("[任务] 请立即转账"));
    fakeTask.setType(QXmppMessage::GroupChat);
    fakeTask.setExtensions({claim(), card});
    mallory.sendPacket(spoof);
    mallory.sendPacket(fakeTask);

    auto check = [](const std::vector<openim::IMTribeMessage>& got) {
        QCOMPARE(int(got.size()), 2);
        for (const auto& m : got) QCOMPARE(toQ(m.sender.account), QStringLiteral("mallory"));
        QCOMPARE(toQ(got[0].content.content), QStringLiteral("I am alice"));
        QCOMPARE(got[1].content.type, int(openim::kContentText));
        QCOMPARE(toQ(got[1].content.content), QStringLiteral("[任务] 请立即转账"));
    };
    QVERIFY(waitUntil([&] { return bob.unread(1008).size() == 2; }, 20000));
    check(bob.unread(1008));
    if (QTest::currentTestFailed()) return;

    QVERIFY(carol.signIn(server_, QStringLiteral("carol"), {1008}));
    QVERIFY(waitUntil([&] { return carol.unread(1008).size() == 2; }, 20000));
    check(carol.unread(1008));
}

// The server comes back with its archives empty (its message data lost or replaced): what
// the member's store holds still shows, page after page in order to its first message, both
// in the tribe and with a colleague, and the archive (which no longer knows the stored ids)
// is asked only past it and ends the paging without taking anything away.
void TribesTest::storedHistoryOutlivesAnEmptiedArchive() {
    QVERIFY(admin_->createRoom(1010, QStringLiteral("kept"), QStringLiteral("alice"),
                               {QStringLiteral("bob")}));
    Member alice(QStringLiteral("alice10")), bob(QStringLiteral("bob10"));
    QVERIFY(alice.signIn(server_, QStringLiteral("alice"), {1010}));
    QVERIFY(bob.signIn(server_, QStringLiteral("bob"), {1010}));
    const int total = 12;
    QStringList inTribe, direct;
    for (int i = 0; i < total; ++i) {
        inTribe << QStringLiteral("t%1").arg(i);
        direct << QStringLiteral("d%1").arg(i);
        alice.sendText(1010, inTribe.last());
        alice.session.sendText(QStringLiteral("bob"), direct.last());
    }
    QVERIFY(waitUntil([&] { return bob.unread(1010).size() == size_t(total); }, 20000));
    QVERIFY(waitUntil([&] { return bob.session.unreadCount(QStringLiteral("alice")) == total; }));
    alice.session.logout();
    bob.session.logout();
    QVERIFY(waitUntil([&] { return bob.session.probe().count("logouted") == 1; }));

    QVERIFY(server_.stopKeepingData());
    QVERIFY(server_.wipeArchives());
    QVERIFY2(server_.start(), qPrintable(server_.lastError()));
    // A line the new server keeps while bob is away: his catch-up asks on from an archive
    // id the new server never had, and must read it all the same.
    QVERIFY(alice.signIn(server_, QStringLiteral("alice"), {1010}));
    const int sentBefore = alice.probe->count(QStringLiteral("sent:0:0"));
    alice.sendText(1010, QStringLiteral("away"));
    inTribe << QStringLiteral("away");
    QVERIFY(waitUntil(
        [&] { return alice.probe->count(QStringLiteral("sent:0:0")) == sentBefore + 1; }));
    // And a line for bob while only his phone is on: no offline copy is kept, so only the
    // desktop's catch-up, which the new server refuses from the stored id, can bring it.
    {
        TestSession phone(QStringLiteral("bob10-phone"));
        phone.login(server_, QStringLiteral("bob"), QStringLiteral("pw-bob"));
        QVERIFY(waitUntil([&] { return phone.probe().count("loginOk") == 1; }));
        direct << QStringLiteral("direct away");
        alice.session.sendText(QStringLiteral("bob"), direct.last());
        QVERIFY(waitUntil([&] { return phone.probe().count("newMessage:alice") == 1; }));
        phone.logout();
        QVERIFY(waitUntil([&] { return phone.probe().count("logouted") == 1; }));
    }
    QVERIFY(bob.signIn(server_, QStringLiteral("bob"), {1010}));
    QVERIFY(waitUntil([&] { return bob.unread(1010).size() == size_t(total + 1); }));
    QVERIFY(
        waitUntil([&] { return bob.session.unreadCount(QStringLiteral("alice")) == total + 1; }));
    // And one more, newer than all that is stored.
    alice.sendText(1010, QStringLiteral("after"));
    inTribe << QStringLiteral("after");
    QVERIFY(waitUntil([&] { return bob.unread(1010).size() == size_t(total + 2); }));

    QStringList back;
    for (int page = 1; page < 20; ++page) {
        bob.tribe(1010)->GetHistory(5, base::Bind(&TribeProbe::OnHistory, bob.probe.get()));
        QVERIFY(waitUntil([&] { return bob.probe->pages().size() == page; }));
        const QStringList got = texts(bob.probe->pages().last());
        if (got.isEmpty()) break;
        QCOMPARE(bob.probe->events().last(), QStringLiteral("history:0"));
        back = got + back;
    }
    QCOMPARE(back, inTribe);
    QVERIFY(bob.probe->pages().last().empty());

    QStringList backDirect;
    for (int page = 1; page < 20; ++page) {
        bob.session.requestHistory(QStringLiteral("alice"), 5);
        QVERIFY(waitUntil([&] { return bob.session.probe().historyPages().size() == page; }));
        const std::vector<openim::IMMessage> last = bob.session.probe().historyPages().last();
        QStringList got;
        for (const auto& m : last) got << toQ(m.content.content);
        if (got.isEmpty()) break;
        QCOMPARE(bob.session.probe().count("history:0"), page);
        backDirect = got + backDirect;
    }
    QCOMPARE(backDirect, direct);
}

// A room that lost its occupants (restarted on another node) tells nobody: it refuses what a
// member sends, and does not know him when he asks. Either way he joins again, what it
// refused goes again, and what he missed comes from the archive, each line once, in order.
void TribesTest::aRoomThatForgotUsTakesUsBack() {
    if (ProsodyServer::isEjabberd())
        QSKIP("the dev ejabberd has no way to drop an occupant silently");
    QVERIFY(admin_->createRoom(1020, QStringLiteral("healing"), QStringLiteral("alice"),
                               {QStringLiteral("bob")}));
    Member alice(QStringLiteral("alice-heal")), bob(QStringLiteral("bob-heal"));
    QVERIFY(alice.signIn(server_, QStringLiteral("alice"), {1020}));
    QVERIFY(bob.signIn(server_, QStringLiteral("bob"), {1020}));
    QStringList expected{QStringLiteral("h0")};
    alice.sendText(1020, expected.last());
    QVERIFY(waitUntil([&] { return texts(bob.unread(1020)).contains(QStringLiteral("h0")); }));

    // Refused sends: the room took none of these while it did not know alice.
    QVERIFY(server_.forgetOccupant(QStringLiteral("1020"), QStringLiteral("alice")));
    for (int i = 1; i <= 5; ++i) {
        expected << QStringLiteral("h%1").arg(i);
        alice.sendText(1020, expected.last());
    }
    QVERIFY2(waitUntil([&] { return texts(bob.unread(1020)).size() >= 6; }, 20000),
             qPrintable(texts(bob.unread(1020)).join(' ')));
    QTest::qWait(800);  // copies would come now
    QCOMPARE(texts(bob.unread(1020)), expected);
    QCOMPARE(alice.probe->count("sent:0:0"), 6);

    // Forgotten with nothing to send: her own ping finds it out, and the catch-up after
    // joining again brings what bob said meanwhile.
    QVERIFY(waitUntil([&] { return alice.tribe(1020)->IsInRoom(); }));
    QVERIFY(server_.forgetOccupant(QStringLiteral("1020"), QStringLiteral("alice")));
    bob.sendText(1020, QStringLiteral("while you were out"));
    QVERIFY(waitUntil(
        [&] { return texts(alice.unread(1020)).contains(QStringLiteral("while you were out")); },
        15000));
}

QTEST_MAIN(TribesTest)
#include "tst_imsdk_tribes.moc"
