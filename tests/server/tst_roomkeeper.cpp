// Project rooms on a real Prosody, kept by the back end while everything runs: the back end
// (in process, over real HTTP) with the demo company, its room keeper signed in as the
// server's administrator, and colleagues as bare XMPP clients that try to enter the rooms.
#include "backendrig.h"
#include "ejabberdapiprovisioner.h"
#include "elementiq.h"
#include "mucprotocol.h"
#include "prosodystoreprovisioner.h"
#include "roomkeeper.h"
#include "stanzahook.h"
#include "support/prosody_server.h"
#include "support/prosody_trust.h"

#include <QXmppClient.h>
#include <QXmppConfiguration.h>
#include <QXmppPresence.h>
#include <QDomElement>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTcpServer>
#include <QtTest>

namespace {

// Waits up to ten seconds for `done`, and says whether it came.
template <typename Done>
bool waitFor(Done done) {
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < 10000) QTest::qWait(20);
    return done();
}

// A colleague on a plain XMPP client: enters rooms, asks them things, and keeps every
// presence the rooms send it.
class Colleague {
public:
    Colleague(const ProsodyServer& server, const QString& id, const QString& secret)
        : id_(id), domain_(server.domain()) {
        client_.insertExtension(
            0, new StanzaHook([this](const QDomElement& s) {
                if (s.tagName() == QLatin1String("presence")) presences_ << s;
                if (s.tagName() == QLatin1String("message")) message(s);
                if (s.tagName() != QLatin1String("iq") || !answers_.contains(s.attribute("id")))
                    return false;
                answers_[s.attribute("id")] = s;
                return true;
            }));
        QXmppConfiguration config;
        config.setUser(id);
        config.setDomain(server.domain());
        config.setPassword(secret);
        config.setHost(server.host());
        config.setPort(server.port());
        trustProsody(config, server);
        config.setResource(QStringLiteral("probe"));
        config.setAutoReconnectionEnabled(false);
        client_.connectToServer(config);
    }

    bool online() {
        return waitFor([&] { return client_.isConnected(); });
    }

    // "" when the room let us in, otherwise its error condition ("registration-required").
    QString enter(const QString& room) {
        QXmppPresence presence;
        presence.setTo(room + QLatin1Char('/') + id_);
        presence.setExtensions({MucProtocol::joinElement()});
        const int from = presences_.size();
        client_.sendPacket(presence);
        QString answer = QStringLiteral("no answer");
        waitFor([&] {
            for (int i = from; i < presences_.size(); ++i) {
                const QDomElement& p = presences_[i];
                if (!isOccupant(p, room)) continue;
                if (p.attribute("type") == QLatin1String("error"))
                    answer = MucProtocol::errorCondition(p);
                else if (MucProtocol::statusCodes(p).contains(110))
                    answer = QString();
                else
                    continue;
                return true;
            }
            return false;
        });
        return answer;
    }

    // Waits until the room puts us out; returns that presence (null on time-out).
    QDomElement putOut(const QString& room) {
        QDomElement out;
        waitFor([&] {
            for (const QDomElement& p : qAsConst(presences_)) {
                if (isOccupant(p, room) && p.attribute("type") == QLatin1String("unavailable")) {
                    out = p;
                    break;
                }
            }
            return !out.isNull();
        });
        return out;
    }

    QDomElement ask(QXmppIq::Type type, const QString& to, const QXmppElement& query) {
        ElementIq iq(type, to, query);
        answers_.insert(iq.id(), QDomElement());
        client_.sendPacket(iq);
        waitFor([&] { return !answers_.value(iq.id()).isNull(); });
        return answers_.take(iq.id());
    }

    QString jid() const { return id_ + QLatin1Char('@') + domain_; }

    // The back end's membership notices received so far ("event user project title"),
    // once `count` of them are in (or after a time-out).
    QStringList notices(int count) { return waitForCount(notices_, count); }
    // The custom messages (task cards) received in rooms, once `count` are in.
    QStringList cards(int count) { return waitForCount(cards_, count); }
    // Cards sent to us alone ("from for card"), once `count` are in.
    QStringList direct(int count) { return waitForCount(direct_, count); }

private:
    bool isOccupant(const QDomElement& presence, const QString& room) const {
        return presence.attribute("from").compare(room + QLatin1Char('/') + id_,
                                                  Qt::CaseInsensitive) == 0;
    }
    static QStringList waitForCount(const QStringList& list, int count) {
        waitFor([&] { return list.size() >= count; });
        return list;
    }
    void message(const QDomElement& s) {
        const QDomElement tribe = s.firstChildElement("tribe");
        if (!tribe.isNull()) {
            notices_ << QStringLiteral("%1 %2 %3 %4")
                            .arg(tribe.attribute("event"), tribe.attribute("user"),
                                 tribe.attribute("id"), tribe.attribute("name"));
        }
        const QDomElement content = s.firstChildElement("content");
        if (s.attribute("type") == QLatin1String("groupchat") &&
            (content.namespaceURI() == QLatin1String("urn:quelix:im:1") ||
             content.attribute("xmlns") == QLatin1String("urn:quelix:im:1")))
            cards_ << content.text();
        const QDomElement relay = s.firstChildElement("relay");
        if (s.attribute("type") == QLatin1String("chat") && !relay.isNull()) {
            direct_ << QStringLiteral("%1 %2 %3")
                           .arg(s.attribute("from").section('/', 0, 0), relay.attribute("for"),
                                content.text());
        }
    }

    QString id_;
    QString domain_;
    QStringList cards_;
    QStringList direct_;
    QXmppClient client_;
    QList<QDomElement> presences_;
    QHash<QString, QDomElement> answers_;
    QStringList notices_;
};

struct User {
    QString id;
    QString session;
    QString secret;
};

}  // namespace

class RoomKeeperTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void demoRoomsAreMembersOnlyAndPersistent();
    void membershipFollowsTheDirectoryAtOnce();
    void addressesCheckTheCaller();
    void catchesUpAfterTheServerWasAway();
    void aRefusedAdminLeavesRoomsPending();
    void aDeadNodeCostsAReconnectNotTheRooms();
    void handEditsAreUndoneByTheRegularCheck();
    void taskCardsQueuedWhileTheKeeperWasAwayReachTheRoom();

private:
    QJsonObject call(const std::string& path, const QString& session) const {
        return envelope(rig_.client().Get(path, as(session)));
    }
    // The same as a POST, as every change must be.
    QJsonObject change(const std::string& path, const QString& session) const {
        return envelope(rig_.client().Post(path, as(session), "", kForm));
    }
    User signIn(int index) const {
        const QJsonObject user = results(rig_.logIn(userNames_.at(index)));
        return {user.value("id").toString(), user.value("sessionId").toString(),
                user.value("imSecret").toString()};
    }
    QString signOf(const User& user) const {
        return call("/rest/auth/client.htm", user.session)
            .value("results")
            .toObject()
            .value("md5Sign")
            .toString();
    }
    // The project changes as the client asks for them; each gives the reply's envelope.
    QJsonObject addMember(qint64 p, const QString& id, const User& by) const {
        return change("/work/editProj.htm?m=addMember&projectId=" + std::to_string(p) +
                          "&userIds=" + id.toStdString(),
                      by.session);
    }
    QJsonObject kick(qint64 p, const QString& id, const User& by) const {
        return call("/work/editProj.htm?&kickUserId=" + id.toStdString() +
                        "&projectId=" + std::to_string(p) + "&m=exitPro",
                    by.session);
    }
    QJsonObject dissolve(qint64 p, const User& owner) const {
        return call("/work/editProj.htm?&projectId=" + std::to_string(p) +
                        "&sign=" + enc(signOf(owner)) + "&m=delProj",
                    owner.session);
    }
    static int codeOf(const QJsonObject& env) { return env.value("errorCode").toInt(-1); }
    QJsonObject roomState(qint64 projectId, const QString& session) const {
        return call("/work/editProj.htm?m=roomState&projectId=" + std::to_string(projectId),
                    session)
            .value("results")
            .toObject();
    }
    QString room(qint64 projectId) const {
        return QStringLiteral("%1@conference.%2").arg(projectId).arg(prosody_.domain());
    }
    // What the back end's own keeper is told, signed in as the server's administrator.
    RoomKeeper::Settings keeperSettings() const {
        RoomKeeper::Settings settings;
        settings.host = prosody_.host();
        settings.caFile = prosody_.caFile();
        settings.port = prosody_.port();
        settings.domain = prosody_.domain();
        settings.adminJid = prosody_.adminJid();
        settings.adminSecret = prosody_.adminSecret();
        return settings;
    }
    bool waitReady(qint64 projectId, const QString& session);
    qint64 createProject(const User& owner, const QString& title, const QStringList& members);

    ProsodyServer prosody_;
    BackendRig rig_;
    std::unique_ptr<RoomKeeper> keeper_;
    std::unique_ptr<ImProvisioner> accounts_;  // outlives the server, which uses it
    QStringList userNames_;
};

void RoomKeeperTest::initTestCase() {
    QVERIFY2(prosody_.start(), qPrintable(prosody_.lastError()));
    QVERIFY(!prosody_.adminJid().isEmpty());
    QVERIFY2(rig_.seed(1), qPrintable(rig_.error));
    userNames_ = rig_.accounts(5);
    if (ProsodyServer::isEjabberd()) {
        EjabberdApiProvisioner::Settings api;
        api.api = QUrl(prosody_.apiUrl());
        api.domain = prosody_.domain();
        api.adminJid = prosody_.adminJid();
        api.adminSecret = prosody_.adminSecret();
        api.caFile = prosody_.caFile();
        api.rosterGroup = prosody_.rosterGroup();
        accounts_ = std::make_unique<EjabberdApiProvisioner>(api);
    } else {
        accounts_ =
            std::make_unique<ProsodyStoreProvisioner>(prosody_.dataDir(), prosody_.domain());
    }
    QString error;
    QVERIFY2(accounts_->provision(DemoCompany::imAccounts(rig_.db.get()), &error),
             qPrintable(error));

    RoomKeeper::Settings settings = keeperSettings();
    settings.retryMaxMs = 300;
    settings.failedRetryMs = 1000;
    keeper_ = std::make_unique<RoomKeeper>(rig_.db.get(), settings);
    keeper_->start();
    BackendServer::Options options;
    options.threads = 4;
    QVERIFY(rig_.serve(options, [this](BackendServer& server) {
        server.setRoomKeeper(keeper_.get());
        server.setProvisioner(accounts_.get());
    }));
}

void RoomKeeperTest::cleanupTestCase() {
    rig_.server.reset();
    keeper_.reset();
    rig_.stop();
}

bool RoomKeeperTest::waitReady(qint64 projectId, const QString& session) {
    QElapsedTimer clock;
    clock.start();
    QJsonObject state;
    while (clock.elapsed() < 20000) {
        state = roomState(projectId, session);
        if (state.value("state") == QLatin1String("ready")) return true;
        QTest::qWait(50);
    }
    qWarning("room of %lld not ready: %s", projectId,
             QJsonDocument(state).toJson(QJsonDocument::Compact).constData());
    return false;
}

qint64 RoomKeeperTest::createProject(const User& owner, const QString& title,
                                     const QStringList& members) {
    const QJsonObject env = change("/work/editProj.htm?m=createProj&title=" + enc(title) +
                                       "&memberIds=" + members.join(',').toStdString(),
                                   owner.session);
    if (codeOf(env) != 0) return 0;
    return env.value("results").toObject().value("projectId").toString().toLongLong();
}

void RoomKeeperTest::demoRoomsAreMembersOnlyAndPersistent() {
    const User first = signIn(0);
    QSqlQuery q(rig_.db->connection());
    QVERIFY(q.exec("SELECT id, title, owner_id FROM project ORDER BY id"));
    QList<qint64> projects;
    QHash<qint64, QString> titles;
    QHash<qint64, QString> owners;
    while (q.next()) {
        projects << q.value(0).toLongLong();
        titles.insert(projects.last(), q.value(1).toString());
        owners.insert(projects.last(), q.value(2).toString());
    }
    QCOMPARE(projects.size(), 12);
    for (qint64 p : projects) QVERIFY(waitReady(p, first.session));

    // The second demo colleague is in every project. (That a colleague outside a project is
    // kept out of its room is seen in membershipFollowsTheDirectoryAtOnce.)
    const qint64 p = projects.first();
    const User second = signIn(1);
    Colleague member(prosody_, second.id, second.secret);
    QVERIFY(member.online());

    // What the room says about itself: members only, kept when empty, hidden, named.
    const QDomElement query =
        member.ask(QXmppIq::Get, room(p), MucProtocol::query(MucProtocol::kDiscoInfo))
            .firstChildElement("query");
    QVERIFY(!query.isNull());
    QStringList features;
    for (QDomElement f = query.firstChildElement("feature"); !f.isNull();
         f = f.nextSiblingElement("feature")) {
        features << f.attribute("var");
    }
    for (const char* feature :
         {"muc_membersonly", "muc_persistent", "muc_hidden", "muc_nonanonymous"})
        QVERIFY2(features.contains(feature), feature);
    QCOMPARE(query.firstChildElement("identity").attribute("name"), titles.value(p));

    // Members may read the member list of such a room: it is exactly the directory's.
    const auto listed = [&](const char* affiliation) {
        QStringList jids = MucProtocol::listedJids(
            member.ask(QXmppIq::Get, room(p), MucProtocol::affiliationQuery(affiliation)));
        jids.sort();
        return jids;
    };
    QStringList expected;
    QSqlQuery m(rig_.db->connection());
    QVERIFY(m.exec(QStringLiteral("SELECT user_id FROM project_member WHERE project_id = %1"
                                  " AND user_id <> %2 ORDER BY user_id")
                       .arg(p)
                       .arg(owners.value(p))));
    while (m.next()) expected << m.value(0).toString() + '@' + prosody_.domain();
    expected.sort();
    QCOMPARE(listed("member"), expected);
    QStringList expectedOwners{prosody_.adminJid(), owners.value(p) + '@' + prosody_.domain()};
    expectedOwners.sort();
    QCOMPARE(listed("owner"), expectedOwners);

    QCOMPARE(member.enter(room(p)), QString());
    // Nobody but the back end makes rooms (Prosody says "not-allowed", ejabberd "forbidden").
    QVERIFY(QStringList({QStringLiteral("not-allowed"), QStringLiteral("forbidden")})
                .contains(member.enter(room(999999))));
}

void RoomKeeperTest::membershipFollowsTheDirectoryAtOnce() {
    const User owner = signIn(0);
    const User b = signIn(1);
    const User c = signIn(2);
    const qint64 p = createProject(owner, QStringLiteral("发布 3.0"), {b.id});
    QVERIFY(p > 0);
    QVERIFY(waitReady(p, owner.session));

    Colleague bob(prosody_, b.id, b.secret);
    Colleague carol(prosody_, c.id, c.secret);
    Colleague olga(prosody_, owner.id, owner.secret);
    QVERIFY(bob.online() && carol.online() && olga.online());
    QCOMPARE(bob.enter(room(p)), QString());
    QCOMPARE(carol.enter(room(p)), QStringLiteral("registration-required"));
    // Told, with the project's title; the owner too (each about itself only).
    const QString tail = QStringLiteral(" %1 发布 3.0").arg(p);
    QCOMPARE(bob.notices(1), QStringList{"joined " + b.id + tail});
    QCOMPARE(olga.notices(1), QStringList{"joined " + owner.id + tail});

    // Added: may enter.
    const QJsonObject env = addMember(p, c.id, owner);
    QCOMPARE(codeOf(env), 0);
    QCOMPARE(env.value("results").toObject().value("memberCount").toString(), QStringLiteral("3"));
    QVERIFY(waitReady(p, owner.session));
    QCOMPARE(carol.enter(room(p)), QString());
    QCOMPARE(carol.notices(1), QStringList{"joined " + c.id + tail});
    QCOMPARE(bob.notices(2).last(), "joined " + c.id + tail);

    // Removed by the owner while inside: put out at once, and kept out.
    QCOMPARE(codeOf(kick(p, b.id, owner)), 0);
    const QDomElement out = bob.putOut(room(p));
    QVERIFY(!out.isNull());
    QVERIFY(MucProtocol::statusCodes(out).contains(321));  // affiliation change
    QVERIFY(waitReady(p, owner.session));
    QCOMPARE(bob.enter(room(p)), QStringLiteral("registration-required"));
    QCOMPARE(bob.notices(3).last(), "kicked " + b.id + tail);
    QCOMPARE(carol.notices(2).last(), "kicked " + b.id + tail);

    // Dissolved: the room goes, with everyone in it.
    QCOMPARE(codeOf(dissolve(p, owner)), 0);
    const QDomElement destroyed = carol.putOut(room(p));
    QVERIFY(!destroyed.isNull());
    QVERIFY(!destroyed.firstChildElement("x").firstChildElement("destroy").isNull());
    QCOMPARE(carol.notices(3).last(), "dismissed " + owner.id + tail);
    QCOMPARE(bob.notices(3).size(), 3);  // no longer a member: not told
    QVERIFY(waitReady(p, owner.session));
    QCOMPARE(roomState(p, owner.session).value("dissolved").toString(), QStringLiteral("1"));
    QVERIFY(!olga.enter(room(p)).isEmpty());
}

// Callers without a session are refused by every one of these addresses in
// tst_backendauthz::nobodySignedInGetsNoData.
void RoomKeeperTest::addressesCheckTheCaller() {
    const User owner = signIn(0);
    const User other = signIn(1);
    // A colleague and a project of another company on the same back end.
    QVERIFY(rig_.addRival());
    QVERIFY(QSqlQuery(rig_.db->connection())
                .exec("INSERT INTO project (id, company_id, title, owner_id, date_created)"
                      " VALUES (90002, 2, 'theirs', 90001, '')"));
    const qint64 p = createProject(owner, QStringLiteral("only mine"), {});
    QVERIFY(p > 0);
    const std::string create = "/work/editProj.htm?m=createProj&title=";
    const std::string add = "/work/editProj.htm?m=addMember&projectId=" + std::to_string(p);
    const std::string state = "/work/editProj.htm?m=roomState&projectId=";
    const struct {
        std::string path;
        const User& caller;
        int code;
    } cases[] = {
        {create + "", owner, 1001},
        {create + enc(QString(101, QLatin1Char('x'))), owner, 1001},
        {create + "a%0Ab", owner, 1001},
        {create + "x&memberIds=1,abc", owner, 1001},
        {create + "x&memberIds=90001", owner, 1006},
        {add + "&userIds=" + other.id.toStdString(), other, 1004},
        {add + "&userIds=90001", owner, 1006},
        {add + "&userIds=", owner, 1001},
        {"/work/editProj.htm?m=addMember&projectId=90002&userIds=" + owner.id.toStdString(), owner,
         1006},
        {state + "90002", owner, 1006},
        {state + std::to_string(p), other, 0},  // the same company may look
    };
    for (const auto& c : cases) {
        QVERIFY2(codeOf(change(c.path, c.caller.session)) == c.code, c.path.c_str());
    }
    QVERIFY(waitReady(p, owner.session));
}

void RoomKeeperTest::catchesUpAfterTheServerWasAway() {
    const User owner = signIn(0);
    const User b = signIn(1);
    const User c = signIn(2);
    const User d = signIn(3);
    const qint64 kept = createProject(owner, QStringLiteral("kept"), {b.id, c.id});
    const qint64 doomed = createProject(owner, QStringLiteral("doomed"), {b.id});
    QVERIFY(kept > 0 && doomed > 0);
    QVERIFY(waitReady(kept, owner.session));
    QVERIFY(waitReady(doomed, owner.session));
    {
        // The project's owner also owns its room and could let a stranger in behind the
        // back end's back; the next check puts that right.
        Colleague olga(prosody_, owner.id, owner.secret);
        QVERIFY(olga.online());
        const QDomElement set =
            olga.ask(QXmppIq::Set, room(kept),
                     MucProtocol::affiliationQuery("member", d.id + '@' + prosody_.domain()));
        QCOMPARE(set.attribute("type"), QStringLiteral("result"));
    }

    QVERIFY(prosody_.stopKeepingData());
    QTRY_VERIFY_WITH_TIMEOUT(!keeper_->isOnline(), 10000);
    // Changes made while the XMPP server is away wait for it.
    QCOMPARE(codeOf(kick(kept, c.id, c)), 0);
    QCOMPARE(codeOf(dissolve(doomed, owner)), 0);
    const qint64 fresh = createProject(owner, QStringLiteral("made while away"), {d.id});
    QVERIFY(fresh > 0);
    QTest::qWait(500);
    QCOMPARE(roomState(fresh, owner.session).value("state").toString(), QStringLiteral("pending"));

    QVERIFY2(prosody_.start(), qPrintable(prosody_.lastError()));
    for (qint64 p : {kept, doomed, fresh}) QVERIFY(waitReady(p, owner.session));
    QVERIFY(keeper_->isOnline());

    Colleague bob(prosody_, b.id, b.secret);
    Colleague carol(prosody_, c.id, c.secret);
    Colleague dave(prosody_, d.id, d.secret);
    QVERIFY(bob.online() && carol.online() && dave.online());
    QCOMPARE(bob.enter(room(kept)), QString());
    QCOMPARE(carol.enter(room(kept)), QStringLiteral("registration-required"));
    QCOMPARE(dave.enter(room(kept)), QStringLiteral("registration-required"));
    // What happened while the XMPP server was away is told once it is back (kept for
    // colleagues who were not signed in).
    QVERIFY(carol.notices(2).contains(QStringLiteral("quit %1 %2 kept").arg(c.id).arg(kept)));
    QVERIFY(bob.notices(4).contains(
        QStringLiteral("dismissed %1 %2 doomed").arg(owner.id).arg(doomed)));
    QCOMPARE(dave.enter(room(fresh)), QString());
    QVERIFY(!bob.enter(room(doomed)).isEmpty());
}

void RoomKeeperTest::aRefusedAdminLeavesRoomsPending() {
    RoomKeeper::Settings settings = keeperSettings();
    settings.adminSecret = QStringLiteral("not the secret");
    settings.retryMaxMs = 200;
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression(QStringLiteral("rooms: XMPP session: the server "
                                                           "refused .* and its secret")));
    RoomKeeper keeper(rig_.db.get(), settings);
    keeper.start();
    QTest::qWait(1500);  // several attempts, one log line
    QVERIFY(!keeper.isOnline());
    QCOMPARE(keeper.state(50001), RoomQueue::State::Pending);
    keeper.stop();
}

// While the back end's keeper is away, a room's members change and a project is made; a new
// keeper on a cluster whose first node is down goes on to the next one at once, without
// waiting out its back-off, and its check at sign-in brings both rooms in step.
void RoomKeeperTest::aDeadNodeCostsAReconnectNotTheRooms() {
    QTcpServer closed;
    QVERIFY(closed.listen(QHostAddress::LocalHost));
    const quint16 dead = closed.serverPort();
    closed.close();
    const User owner = signIn(0);
    const User d = signIn(3);
    const qint64 quiet = createProject(owner, QStringLiteral("quiet"), {});
    QVERIFY(quiet > 0);
    QVERIFY(waitReady(quiet, owner.session));
    keeper_->stop();
    QCOMPARE(codeOf(addMember(quiet, d.id, owner)), 0);
    const qint64 p = createProject(owner, QStringLiteral("on the second node"), {d.id});
    QVERIFY(p > 0);

    RoomKeeper::Settings settings = keeperSettings();
    settings.host =
        QStringLiteral("127.0.0.1:%1,%2:%3").arg(dead).arg(prosody_.host()).arg(prosody_.port());
    settings.retryMaxMs = 30000;  // a whole round's pause would outlast the test
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("cannot reach 127.0.0.1:"));
    QElapsedTimer clock;
    clock.start();
    RoomKeeper cluster(rig_.db.get(), settings);
    cluster.start();
    QTRY_VERIFY_WITH_TIMEOUT(cluster.isOnline(), 5000);
    QVERIFY2(clock.elapsed() < 3000, qPrintable(QString::number(clock.elapsed())));
    QTRY_COMPARE_WITH_TIMEOUT(cluster.state(p), RoomQueue::State::Ready, 10000);
    QTRY_COMPARE_WITH_TIMEOUT(cluster.state(quiet), RoomQueue::State::Ready, 10000);
    Colleague dave(prosody_, d.id, d.secret);
    QVERIFY(dave.online());
    QCOMPARE(dave.enter(room(p)), QString());
    QCOMPARE(dave.enter(room(quiet)), QString());
    cluster.stop();
    keeper_->start();
}

void RoomKeeperTest::handEditsAreUndoneByTheRegularCheck() {
    const User owner = signIn(0);
    const User d = signIn(3);
    const qint64 p = createProject(owner, QStringLiteral("checked"), {});
    QVERIFY(p > 0);
    QVERIFY(waitReady(p, owner.session));

    keeper_->stop();
    RoomKeeper::Settings settings = keeperSettings();
    settings.recheckMs = 1000;
    RoomKeeper often(rig_.db.get(), settings);
    often.start();
    QTRY_VERIFY_WITH_TIMEOUT(often.isOnline(), 10000);

    // The owner lets a stranger in with a plain client; the next regular check puts the
    // stranger out again.
    Colleague olga(prosody_, owner.id, owner.secret);
    Colleague dave(prosody_, d.id, d.secret);
    QVERIFY(olga.online() && dave.online());
    const QDomElement set =
        olga.ask(QXmppIq::Set, room(p), MucProtocol::affiliationQuery("member", dave.jid()));
    QCOMPARE(set.attribute("type"), QStringLiteral("result"));
    QCOMPARE(dave.enter(room(p)), QString());
    QVERIFY(!dave.putOut(room(p)).isNull());
    QCOMPARE(dave.enter(room(p)), QStringLiteral("registration-required"));
    often.stop();
    keeper_->start();
}

void RoomKeeperTest::taskCardsQueuedWhileTheKeeperWasAwayReachTheRoom() {
    const User owner = signIn(0);
    const User d = signIn(3);
    const qint64 p = createProject(owner, QStringLiteral("cards"), {d.id});
    QVERIFY(p > 0);
    QVERIFY(waitReady(p, owner.session));
    Colleague dave(prosody_, d.id, d.secret);
    QVERIFY(dave.online());
    QCOMPARE(dave.enter(room(p)), QString());

    // A task made while the back end's XMPP side is down waits in the outbox.
    keeper_->stop();
    const auto page = rig_.client().Get("/work/task.htm?m=create&projectId=" + std::to_string(p),
                                        as(owner.session));
    QVERIFY(page);
    const std::string token = QRegularExpression("name=\"formToken\" value=\"([0-9a-f]+)\"")
                                  .match(QString::fromStdString(page->body))
                                  .captured(1)
                                  .toStdString();
    const auto newTask = [&](const QString& title, const std::string& more) {
        const auto r = rig_.client().Post("/work/task.htm", as(owner.session),
                                          "m=create&projectId=" + std::to_string(p) +
                                              "&title=" + enc(title) + more + "&formToken=" + token,
                                          kForm);
        return r && r->status == 303;
    };
    QVERIFY(newTask(QStringLiteral("横幅"), "&executorId=" + d.id.toStdString()));
    QTest::qWait(300);
    QVERIFY(dave.cards(1).isEmpty());

    // Back online, the card reaches the room once, and leaves the outbox.
    keeper_->start();
    const QStringList cards = dave.cards(1);
    QCOMPARE(cards.size(), 1);
    const QJsonObject card = QJsonDocument::fromJson(cards.first().toUtf8()).object();
    QCOMPARE(card.value("event").toInt(-1), 0);
    QCOMPARE(card.value("title").toString(), QStringLiteral("横幅"));
    QCOMPARE(card.value("executorId").toString(), d.id);
    QTRY_COMPARE_WITH_TIMEOUT(rig_.number("SELECT COUNT(*) FROM task_card"), 0, 10000);
    QTest::qWait(500);
    QCOMPARE(dave.cards(1).size(), 1);

    // The executor also has it directly, once, from the back end's account in the name of
    // the company's task assistant, and the direct outbox is empty again.
    const QStringList direct = dave.direct(1);
    QCOMPARE(direct.size(), 1);
    QCOMPARE(direct.first().section(' ', 0, 0), prosody_.adminJid());
    const QString assistant = direct.first().section(' ', 1, 1);
    const QJsonObject mine =
        QJsonDocument::fromJson(direct.first().section(' ', 2).toUtf8()).object();
    QCOMPARE(mine.value("event").toInt(-1), 1);
    QCOMPARE(mine.value("taskId"), card.value("taskId"));
    QCOMPARE(mine.value("userId").toString(), owner.id);
    QTRY_COMPARE_WITH_TIMEOUT(rig_.number("SELECT COUNT(*) FROM task_direct_card"), 0, 10000);

    // The assistant is a colleague the client can look up, but nobody's project member and
    // not part of the organisation tree.
    const QJsonArray found =
        call("/work/mobileUserInfo.htm?m=findSomeOne&manyUserIds=" + assistant.toStdString(),
             d.session)
            .value("results")
            .toArray();
    QCOMPARE(found.size(), 1);
    QCOMPARE(found.first().toObject().value("realName").toString(), QStringLiteral("任务助手"));
    // Made while the back end ran, it has its IM account already: what a colleague writes
    // to it is not bounced.
    QSqlQuery secret(rig_.db->connection());
    QVERIFY(secret.exec("SELECT im_secret FROM users WHERE id = " + assistant) && secret.next());
    Colleague assistantSession(prosody_, assistant, secret.value(0).toString());
    QVERIFY(assistantSession.online());
    QCOMPARE(codeOf(addMember(p, assistant, owner)), 1006);
    // A task the owner makes for itself tells nobody directly.
    QVERIFY(newTask(QStringLiteral("自办"), ""));
    QCOMPARE(dave.cards(2).size(), 2);
    QTest::qWait(300);
    QCOMPARE(dave.direct(1).size(), 1);
}

QTEST_GUILESS_MAIN(RoomKeeperTest)
#include "tst_roomkeeper.moc"
