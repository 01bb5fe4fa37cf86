// Tribes through a private Prosody: project rooms kept by an administrator as the back end
// keeps them, SDK sessions as members, a plain XMPP client beside them.
#include <QXmppClient.h>
#include <QXmppElement.h>
#include <QXmppLogger.h>
#include <QXmppMessage.h>
#include <QImage>
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

// Records a session's tribe callbacks.
class TribeProbe : public base::RefCountedThreadSafe<TribeProbe>, public EventLog {
public:
    void OnLoaded() { note(QStringLiteral("loaded")); }
    void OnJoined(openim::IMTribeID t, openim::IMUserID u) { note(event("joined", t, u)); }
    void OnKicked(openim::IMTribeID t, openim::IMUserID u) { note(event("kicked", t, u)); }
    void OnDismissed(const openim::IMTribeID& t) {
        note(QStringLiteral("dismissed:%1").arg(t.tribeId));
    }
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
        {
            QMutexLocker guard(&lock_);
            pages_.append(page);
        }
        note(QStringLiteral("history:%1").arg(r.code));
    }
    QList<std::vector<openim::IMTribeMessage>> pages() const { return locked(pages_); }

private:
    friend class base::RefCountedThreadSafe<TribeProbe>;
    ~TribeProbe() = default;
    static QString event(const char* what, openim::IMTribeID t, const openim::IMUserID& u) {
        return QStringLiteral("%1:%2:%3").arg(what).arg(t.tribeId).arg(toQ(u.account));
    }
    QList<std::vector<openim::IMTribeMessage>> pages_;
};

// An SDK session with its tribe callbacks registered, signed in with the company authority.
struct Member {
    explicit Member(const QString& name) : session(name), probe(new TribeProbe) {
        auto tribes = service();
        TribeProbe* p = probe.get();
        tribes->RegisterTribesLoaded(base::Bind(&TribeProbe::OnLoaded, p));
        tribes->RegisterMemberJoined(base::Bind(&TribeProbe::OnJoined, p));
        tribes->RegisterMemberKicked(base::Bind(&TribeProbe::OnKicked, p));
        tribes->RegisterTribeDismissed(base::Bind(&TribeProbe::OnDismissed, p));
        tribes->RegisterNewMessage(base::Bind(&TribeProbe::OnMessage, p));
        session
            .service<openim::ITribeMediaService>(openim::kTribeMediaModule,
                                                 openim::kTribeMediaInterface)
            ->RegisterDownloadCallback(base::Bind(&TribeProbe::OnDownload, p));
    }
    base::scoped_refptr<openim::ITribeService> service() {
        return session.service<openim::ITribeService>(openim::kTribeModule,
                                                      openim::kTribeInterface);
    }
    base::scoped_refptr<openim::ITribe> tribe(quint64 id) { return session.tribe(id); }
    bool signIn(const ProsodyServer& server, const QString& account, QList<quint64> tribes) {
        const int before = probe->count("loaded");
        if (!session.signIn(server, account, kAuthority)) return false;
        std::vector<openim::IMTribeID> ids;
        for (quint64 t : tribes) ids.push_back(openim::IMTribeID(t));
        service()->SyncTribes(ids, {});
        if (!waitUntil([&] { return probe->count("loaded") > before; })) return false;
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
    void requestHistory(quint64 id, int count) {
        tribe(id)->GetHistory(count, base::Bind(&TribeProbe::OnHistory, probe.get()));
    }
    std::vector<openim::IMTribeMessage> unread(quint64 id) {
        std::vector<openim::IMTribeMessage> out;
        tribe(id)->GetUnreadMessages(&out);
        return out;
    }
    QStringList readBack(quint64 id, int pageSize) {
        return readBackPages(
            *probe, [&] { requestHistory(id, pageSize); },
            [&] { return texts(probe->pages().last()); });
    }

    TestSession session;
    base::scoped_refptr<TribeProbe> probe;
};

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
    QVERIFY(admin_->createRoom(1001, "Quelix 项目", "alice", {"bob", "carol"}));
    Member alice("alice"), bob("bob"), carol("carol");
    QVERIFY(alice.signIn(server_, "alice", {1001}));
    QVERIFY(bob.signIn(server_, "bob", {1001}));
    QVERIFY(carol.signIn(server_, "carol", {1001}));
    QVERIFY(alice.tribe(1001)->IsMember() && bob.tribe(1001)->IsMember());

    QImage picture(24, 16, QImage::Format_RGB32);
    picture.fill(Qt::darkMagenta);
    const QString path = alice.session.dataFolder() + "/p.png";
    QVERIFY(picture.save(path));
    const auto sent = base::Bind(&TribeProbe::OnSent, alice.probe.get());
    alice.sendText(1001, "大家好 [微笑]");
    alice.tribe(1001)->SendCustom(fromQ(R"({"msgType":5,"userId":"5"})"), fromQ("[任务]"), sent);
    alice.tribe(1001)->SendImage(wide_text::pathFromQ(path), 24, 16, sent);
    QVERIFY(waitUntil([&] { return alice.probe->count("sent") == 3; }, 20000));
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
        QCOMPARE(QImage(toQ(got[2].content.content)).size(), QSize(24, 16));
        QVERIFY(m->probe->count("message:1001") >= 1);
        QCOMPARE(m->probe->count("download:0"), 1);
    }
    // Our own messages come back from the room once, as sent, never as unread.
    QCOMPARE(alice.tribe(1001)->GetUnreadCount(), 0);
    alice.requestHistory(1001, 10);
    QVERIFY(waitUntil([&] { return alice.probe->pages().size() == 1; }));
    QCOMPARE(int(alice.probe->pages().first().size()), 3);

    // Reading marks exactly what was read.
    bob.tribe(1001)->MarkMessagesRead({bob.unread(1001)[0].msgId});
    QCOMPARE(bob.tribe(1001)->GetUnreadCount(), 2);
}

void TribesTest::offlineMemberCatchesUpOnceAndInOrder() {
    QVERIFY(admin_->createRoom(1002, "catch-up", "alice", {"carol"}));
    Member alice("alice2"), carol("carol2");
    QVERIFY(alice.signIn(server_, "alice", {1002}));
    QVERIFY(carol.signIn(server_, "carol", {1002}));
    alice.sendText(1002, "before");
    QVERIFY(waitUntil([&] { return carol.unread(1002).size() == 1; }));
    carol.tribe(1002)->MarkRead();

    QVERIFY(carol.session.signOut());
    const int total = 500;
    QStringList expected;
    for (int i = 0; i < total; ++i) {
        expected << QStringLiteral("m%1").arg(i);
        alice.sendText(1002, expected.last());
    }
    QVERIFY(waitUntil([&] { return alice.probe->count("sent:0:0") == total + 1; }, 60000));

    QVERIFY(carol.signIn(server_, "carol", {1002}));
    QVERIFY2(waitUntil([&] { return carol.tribe(1002)->GetUnreadCount() >= total; }, 60000),
             qPrintable(QString::number(carol.tribe(1002)->GetUnreadCount())));
    // Lines that came live while the archive was read settle into their place.
    QVERIFY(waitUntil([&] { return texts(carol.unread(1002)) == expected; }, 10000));
    QCOMPARE(texts(carol.unread(1002)), expected);

    // A reconnect asks the archive again from where it stopped: nothing comes twice.
    QVERIFY(carol.session.signOut());
    QVERIFY(carol.signIn(server_, "carol", {1002}));
    QTest::qWait(1500);
    QCOMPARE(carol.tribe(1002)->GetUnreadCount(), total);

    // Another desktop of carol's, with nothing stored, reads the room back from its archive
    // a page at a time; pages meet within one second and keep the room's order.
    QVERIFY(carol.session.signOut());
    Member fresh("carol2-fresh");
    QVERIFY(fresh.signIn(server_, "carol", {1002}));
    QCOMPARE(fresh.readBack(1002, 30), QStringList{"before"} + expected);
}

void TribesTest::removalAndDissolutionReachEveryone() {
    QVERIFY(admin_->createRoom(1003, "leaving", "alice", {"bob", "carol"}));
    Member alice("alice3"), bob("bob3"), carol("carol3");
    QVERIFY(alice.signIn(server_, "alice", {1003}));
    QVERIFY(bob.signIn(server_, "bob", {1003}));
    QVERIFY(carol.signIn(server_, "carol", {1003}));

    // The back end removes bob: the room puts him out, the notices tell everyone.
    QVERIFY(admin_->setAffiliation(1003, "bob", "none", "kicked"));
    for (const char* to : {"alice", "bob", "carol"}) admin_->notice(to, 1003, "kicked", "bob");
    for (Member* m : {&bob, &alice, &carol})
        QVERIFY(waitUntil([&] { return m->probe->count("kicked:1003:bob") == 1; }));
    QTest::qWait(500);
    QCOMPARE(bob.probe->count("kicked:1003:bob"), 1);  // room and notice: told once
    QVERIFY(!bob.tribe(1003)->IsMember());

    alice.sendText(1003, "without bob");
    QVERIFY(waitUntil([&] { return carol.unread(1003).size() == 1; }));
    QTest::qWait(500);
    QCOMPARE(bob.tribe(1003)->GetUnreadCount(), 0);
    // A notice from anyone but the company's account changes nothing.
    RoomAdmin forger(server_, "mallory", "pw-mallory");
    QVERIFY(forger.connectNow());
    forger.notice("carol", 1003, "dismissed", QString());

    // Dissolving destroys the room for everyone still in it.
    QVERIFY(admin_->destroyRoom(1003));
    QVERIFY(waitUntil([&] { return alice.probe->count("dismissed:1003") == 1; }));
    QVERIFY(waitUntil([&] { return carol.probe->count("dismissed:1003") == 1; }));
    QCOMPARE(bob.probe->count("dismissed:1003"), 0);
    QVERIFY(!carol.tribe(1003)->IsMember());
}

void TribesTest::outsidersCanNeitherJoinNorRead() {
    QVERIFY(admin_->createRoom(1004, "closed", "alice", {}));
    Member alice("alice4"), mallory("mallory4");
    QVERIFY(alice.signIn(server_, "alice", {1004}));
    alice.sendText(1004, "secret plan");
    QVERIFY(waitUntil([&] { return alice.probe->count("sent:0:0") == 1; }));

    // Mallory claims the tribe; the room refuses her.
    QVERIFY(mallory.session.signIn(server_, "mallory", kAuthority));
    mallory.service()->SyncTribes({openim::IMTribeID(1004)}, {});
    QTest::qWait(1000);
    QVERIFY(!mallory.tribe(1004)->IsInRoom());
    mallory.sendText(1004, "let me in");
    QVERIFY(waitUntil([&] { return mallory.probe->count("sent") == 1; }));
    QCOMPARE(mallory.probe->count("sent:0"), 0);
    mallory.requestHistory(1004, 10);
    QVERIFY(waitUntil([&] { return mallory.probe->pages().size() == 1; }));
    QVERIFY(mallory.probe->pages().first().empty());
    // Not even a direct archive request gets anything out of the room.
    QProcess raw;
    startPlainClient(raw, server_, "mallory", admin_->roomJid(1004),
                     {"--raw", QStringLiteral("<iq type='set' id='q1' to='%1'><query "
                                              "xmlns='urn:xmpp:mam:2' queryid='q1'/></iq>")
                                   .arg(admin_->roomJid(1004))});
    QVERIFY(raw.waitForFinished(30000));
    QVERIFY(!raw.readAllStandardOutput().contains("secret plan"));
    QCOMPARE(alice.tribe(1004)->GetUnreadCount(), 0);
}

void TribesTest::memberAddedWhileOnlineJoinsAtOnce() {
    QVERIFY(admin_->createRoom(1005, "new team", "alice", {}));
    Member alice("alice5"), pat("pat5");
    QVERIFY(alice.signIn(server_, "alice", {1005}));
    QVERIFY(pat.signIn(server_, "pat", {}));
    QVERIFY(admin_->setAffiliation(1005, "pat", "member"));
    admin_->notice("pat", 1005, "joined", "pat", "new team");
    admin_->notice("alice", 1005, "joined", "pat");
    QVERIFY(waitUntil([&] { return pat.probe->count("joined:1005:pat") == 1; }, 10000));
    QVERIFY(waitUntil([&] { return alice.probe->count("joined:1005:pat") == 1; }));
    QCOMPARE(toQ(pat.tribe(1005)->GetName()), QStringLiteral("new team"));
    alice.sendText(1005, "welcome");
    QVERIFY(waitUntil([&] { return pat.unread(1005).size() == 1; }));
}

void TribesTest::plainClientTakesPart() {
    QVERIFY(admin_->createRoom(1006, "mixed", "alice", {"pat"}));
    Member alice("alice6");
    QVERIFY(alice.signIn(server_, "alice", {1006}));
    // pat uses a plain client: joins, says one line, prints the first group line it sees.
    QProcess plain;
    startPlainClient(plain, server_, "pat", admin_->roomJid(1006), {"--room", "hi from slixmpp"});
    QVERIFY(waitUntil([&] { return alice.unread(1006).size() == 1; }, 20000));
    QCOMPARE(texts(alice.unread(1006)), QStringList{"hi from slixmpp"});
    QCOMPARE(toQ(alice.unread(1006)[0].sender.account), QStringLiteral("pat"));
    alice.sendText(1006, "hello plain client");
    QVERIFY(plain.waitForFinished(30000));
    QVERIFY2(plain.readAllStandardOutput().contains("hello plain client"),
             qPrintable(plain.readAllStandardError()));
}

void TribesTest::cardsForOneColleagueComeInTheAssistantsName() {
    auto first = std::make_unique<TestSession>("pat-cards");
    TestSession& pat = *first;
    QVERIFY(pat.signIn(server_, "pat", kAuthority));
    const QString assistant = "9001";
    const QString card = R"({"msgType":1,"taskId":"5","event":1})";

    // The company's account carries it; it lands in the assistant's conversation, once
    // however often it is sent.
    admin_->relayCard("pat", assistant, "task-direct-1", card);
    admin_->relayCard("pat", assistant, "task-direct-1", card);
    QVERIFY(waitUntil([&] { return pat.unreadCount(assistant) == 1; }));
    const std::vector<openim::IMMessage> got = pat.unread(assistant);
    QCOMPARE(toQ(got.front().sender.account), assistant);
    QCOMPARE(got.front().content.type, int(openim::kContentCustom));
    QCOMPARE(toQ(got.front().content.content), card);

    // Nobody else may speak in another's name, and the company's account only with cards.
    RoomAdmin forger(server_, "mallory", "pw-mallory");
    QVERIFY(forger.connectNow());
    forger.relayCard("pat", assistant, "forged-1", card);
    forger.relayCard("pat", "alice", "forged-2", card);
    admin_->relayCard("pat", assistant, "task-direct-2", "plain words", 1);
    admin_->relayCard("pat", "pat", "task-direct-3", card);
    // A card sent after them arrives, so they were handled (and refused) by then.
    admin_->relayCard("pat", assistant, "task-direct-4", card);
    QVERIFY(waitUntil([&] { return pat.unreadCount(assistant) == 2; }));
    QTest::qWait(300);
    QCOMPARE(pat.unreadCount(assistant), 2);
    for (const QString& nobody : {QStringLiteral("mallory"), QStringLiteral("alice"), kAuthority})
        QVERIFY2(pat.unreadCount(nobody) == 0, qPrintable(nobody));

    // Read and asked for again as history (a new session's first page), they are there.
    pat.markRead(assistant);
    first.reset();
    TestSession again("pat-cards");
    QVERIFY(again.signIn(server_, "pat", kAuthority));
    again.requestHistory(assistant, 7);
    QVERIFY(waitUntil([&] { return again.probe().count("history") == 1; }));
    QCOMPARE(again.probe().count("history:0"), 1);
    QCOMPARE(int(again.probe().historyPages().last().size()), 2);
}

// A member may put any element into a room message, including an archive id in another
// member's name; the server must drop that before it reaches the member it names, while
// the room's own id (which members use to drop duplicates) stays.
void TribesTest::forgedArchiveIdsNeverReachAMember() {
    QVERIFY(admin_->createRoom(1007, "ids", "alice", {"bob"}));
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
        const QString user = c == &alice ? "alice" : "bob";
        c->connectToServer(plainConfig(server_, user));
        QVERIFY(waitUntil([c] { return c->isConnected(); }));
        c->sendPacket(roomJoin(room, user));
    }
    QVERIFY(waitUntil([&] { return received.contains(room + "/alice"); }));

    QXmppMessage forged(QString(), room, "archived for bob?");
    forged.setType(QXmppMessage::GroupChat);
    for (const QString& by : {"bob@" + server_.domain(), "BOB@" + server_.domain().toUpper()}) {
        QXmppElement id;
        id.setTagName("stanza-id");
        id.setAttribute("xmlns", "urn:xmpp:sid:0");
        id.setAttribute("by", by);
        id.setAttribute("id", "forged-" + by.left(3));
        forged.setExtensions(forged.extensions() << id);
    }
    alice.sendPacket(forged);
    QVERIFY(waitUntil([&] { return received.contains("archived for bob?"); }));
    QVERIFY2(!received.contains("forged-"), qPrintable(received.right(1500)));
    QVERIFY2(received.contains(QStringLiteral("by=\"%1\"").arg(room)) ||
                 received.contains(QStringLiteral("by='%1'").arg(room)),
             qPrintable(received.right(1500)));
}

// Mallory, on a plain client, takes alice's account name as her nick while alice is away,
// claims alice's address inside her messages and posts a task card. Bob (live) and carol
// (from the archive, signing in later) keep every line under mallory, and the card as text.
void TribesTest::aMemberSpeaksOnlyForHimself() {
    QVERIFY(admin_->createRoom(1008, "trust", "alice", {"bob", "carol", "mallory"}));
    Member bob("bob-trust");
    QVERIFY(bob.signIn(server_, "bob", {1008}));
    // Carol knows the tribe already and is away while mallory writes: she reads it from the
    // room's archive when she comes back.
    Member carol("carol-trust");
    QVERIFY(carol.signIn(server_, "carol", {1008}));
    QVERIFY(carol.session.signOut());

    QXmppClient mallory;
    mallory.connectToServer(plainConfig(server_, "mallory"));
    QVERIFY(waitUntil([&] { return mallory.isConnected(); }));
    const QString room = admin_->roomJid(1008);
    mallory.sendPacket(roomJoin(room, "alice"));
    QTest::qWait(500);

    auto claim = [&] {
        QXmppElement item;
        item.setTagName("item");
        item.setAttribute("jid", "alice@" + server_.domain());
        item.setAttribute("affiliation", "owner");
        QXmppElement x;
        x.setTagName("x");
        x.setAttribute("xmlns", "http://jabber.org/protocol/muc#user");
        x.appendChild(item);
        return x;
    };
    QXmppMessage spoof(QString(), room, "I am alice");
    spoof.setType(QXmppMessage::GroupChat);
    spoof.setExtensions({claim()});
    QXmppElement card;
    card.setTagName("content");
    card.setAttribute("xmlns", "urn:quelix:im:1");
    card.setAttribute("kind", "16");
    card.setValue(R"({"msgType":1,"taskId":"66","event":1})");
    QXmppMessage fakeTask(QString(), room, "[任务] 请立即转账");
    fakeTask.setType(QXmppMessage::GroupChat);
    fakeTask.setExtensions({claim(), card});
    mallory.sendPacket(spoof);
    mallory.sendPacket(fakeTask);

    for (Member* m : {&bob, &carol}) {
        if (m == &carol) QVERIFY(carol.signIn(server_, "carol", {1008}));
        QVERIFY(waitUntil([&] { return m->unread(1008).size() == 2; }, 20000));
        const auto got = m->unread(1008);
        QCOMPARE(int(got.size()), 2);
        for (const auto& line : got) QCOMPARE(toQ(line.sender.account), QStringLiteral("mallory"));
        QCOMPARE(texts(got), (QStringList{"I am alice", "[任务] 请立即转账"}));
        QCOMPARE(got[1].content.type, int(openim::kContentText));
    }
}

// The server comes back with its archives empty (its message data lost or replaced): what
// the member's store holds still shows, page after page in order to its first message, both
// in the tribe and with a colleague, and the archive (which no longer knows the stored ids)
// is asked only past it and ends the paging without taking anything away.
void TribesTest::storedHistoryOutlivesAnEmptiedArchive() {
    QVERIFY(admin_->createRoom(1010, "kept", "alice", {"bob"}));
    Member alice("alice10"), bob("bob10");
    QVERIFY(alice.signIn(server_, "alice", {1010}));
    QVERIFY(bob.signIn(server_, "bob", {1010}));
    const int total = 12;
    QStringList inTribe, direct;
    for (int i = 0; i < total; ++i) {
        inTribe << QStringLiteral("t%1").arg(i);
        direct << QStringLiteral("d%1").arg(i);
        alice.sendText(1010, inTribe.last());
        alice.session.sendText("bob", direct.last());
    }
    QVERIFY(waitUntil([&] { return bob.unread(1010).size() == size_t(total); }, 20000));
    QVERIFY(waitUntil([&] { return bob.session.unreadCount("alice") == total; }));
    alice.session.logout();
    QVERIFY(bob.session.signOut());

    QVERIFY(server_.stopKeepingData());
    QVERIFY(server_.wipeArchives());
    QVERIFY2(server_.start(), qPrintable(server_.lastError()));
    // A line the new server keeps while bob is away: his catch-up asks on from an archive
    // id the new server never had, and must read it all the same.
    QVERIFY(alice.signIn(server_, "alice", {1010}));
    const int sentBefore = alice.probe->count("sent:0:0");
    alice.sendText(1010, "away");
    inTribe << "away";
    QVERIFY(waitUntil([&] { return alice.probe->count("sent:0:0") == sentBefore + 1; }));
    // And a line for bob while only his phone is on: no offline copy is kept, so only the
    // desktop's catch-up, which the new server refuses from the stored id, can bring it.
    {
        TestSession phone("bob10-phone");
        QVERIFY(phone.signIn(server_, "bob"));
        direct << "direct away";
        alice.session.sendText("bob", direct.last());
        QVERIFY(waitUntil([&] { return phone.probe().count("newMessage:alice") == 1; }));
        QVERIFY(phone.signOut());
    }
    QVERIFY(bob.signIn(server_, "bob", {1010}));
    QVERIFY(waitUntil([&] { return bob.unread(1010).size() == size_t(total + 1); }));
    QVERIFY(waitUntil([&] { return bob.session.unreadCount("alice") == total + 1; }));
    // And one more, newer than all that is stored.
    alice.sendText(1010, "after");
    inTribe << "after";
    QVERIFY(waitUntil([&] { return bob.unread(1010).size() == size_t(total + 2); }));

    QCOMPARE(bob.readBack(1010, 5), inTribe);
    QCOMPARE(bob.session.readBack("alice", 5), direct);
}

// A room that lost its occupants (restarted on another node) tells nobody: it refuses what a
// member sends, and does not know him when he asks. Either way he joins again, what it
// refused goes again, and what he missed comes from the archive, each line once, in order.
void TribesTest::aRoomThatForgotUsTakesUsBack() {
    if (ProsodyServer::isEjabberd())
        QSKIP("the dev ejabberd has no way to drop an occupant silently");
    QVERIFY(admin_->createRoom(1020, "healing", "alice", {"bob"}));
    Member alice("alice-heal"), bob("bob-heal");
    QVERIFY(alice.signIn(server_, "alice", {1020}));
    QVERIFY(bob.signIn(server_, "bob", {1020}));
    QStringList expected{"h0"};
    alice.sendText(1020, expected.last());
    QVERIFY(waitUntil([&] { return texts(bob.unread(1020)).contains("h0"); }));

    // Refused sends: the room took none of these while it did not know alice.
    QVERIFY(server_.forgetOccupant("1020", "alice"));
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
    QVERIFY(server_.forgetOccupant("1020", "alice"));
    bob.sendText(1020, "while you were out");
    QVERIFY(
        waitUntil([&] { return texts(alice.unread(1020)).contains("while you were out"); }, 15000));
}

QTEST_MAIN(TribesTest)
#include "tst_imsdk_tribes.moc"
