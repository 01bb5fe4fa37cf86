// Project rooms on a real Prosody, kept by the back end while everything runs: the back end
// (in process, over real HTTP) with the demo company, its room keeper signed in as the
// server's administrator, and colleagues as bare XMPP clients that try to enter the rooms.
#include "backendserver.h"
#include "database.h"
#include "democompany.h"
#include "ejabberdapiprovisioner.h"
#include "elementiq.h"
#include "mucprotocol.h"
#include "prosodystoreprovisioner.h"
#include "roomkeeper.h"
#include "stanzahook.h"
#include "support/prosody_server.h"
#include "support/prosody_trust.h"

#include <httplib.h>

#include <QXmppClient.h>
#include <QXmppConfiguration.h>
#include <QXmppPresence.h>
#include <QDomElement>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSqlQuery>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

namespace {

std::string enc(const QString& s) { return QUrl::toPercentEncoding(s).toStdString(); }

// A colleague on a plain XMPP client: enters rooms, asks them things, and keeps every
// presence the rooms send it.
class Colleague {
public:
    Colleague(const ProsodyServer& server, const QString& id, const QString& secret)
        : id_(id), domain_(server.domain()) {
        client_.insertExtension(
            0, new StanzaHook([this](const QDomElement& s) {
                if (s.tagName() == QLatin1String("presence")) presences_ << s;
                const QDomElement tribe = s.firstChildElement("tribe");
                if (s.tagName() == QLatin1String("message") && !tribe.isNull()) {
                    notices_ << QStringLiteral("%1 %2 %3 %4")
                                    .arg(tribe.attribute("event"), tribe.attribute("user"),
                                         tribe.attribute("id"), tribe.attribute("name"));
                }
                const QDomElement content = s.firstChildElement("content");
                if (s.tagName() == QLatin1String("message") &&
                    s.attribute("type") == QLatin1String("groupchat") &&
                    (content.namespaceURI() == QLatin1String("urn:quelix:im:1") ||
                     content.attribute("xmlns") == QLatin1String("urn:quelix:im:1")))
                    cards_ << content.text();
                const QDomElement relay = s.firstChildElement("relay");
                if (s.tagName() == QLatin1String("message") &&
                    s.attribute("type") == QLatin1String("chat") && !relay.isNull())
                    direct_ << QStringLiteral("%1 %2 %3")
                                   .arg(s.attribute("from").section('/', 0, 0),
                                        relay.attribute("for"), content.text());
                if (s.tagName() == QLatin1String("iq") && answers_.contains(s.attribute("id"))) {
                    answers_[s.attribute("id")] = s;
                    return true;
                }
                return false;
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
        QElapsedTimer clock;
        clock.start();
        while (!client_.isConnected() && clock.elapsed() < 10000) QTest::qWait(20);
        return client_.isConnected();
    }

    // "" when the room let us in, otherwise its error condition ("registration-required").
    QString enter(const QString& room) {
        const QString occupant = room + QLatin1Char('/') + id_;
        QXmppPresence presence;
        presence.setTo(occupant);
        presence.setExtensions({MucProtocol::joinElement()});
        const int from = presences_.size();
        client_.sendPacket(presence);
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < 10000) {
            for (int i = from; i < presences_.size(); ++i) {
                const QDomElement& p = presences_[i];
                if (p.attribute("from").compare(occupant, Qt::CaseInsensitive) != 0) continue;
                if (p.attribute("type") == QLatin1String("error"))
                    return MucProtocol::errorCondition(p);
                if (MucProtocol::statusCodes(p).contains(110)) return QString();
            }
            QTest::qWait(20);
        }
        return QStringLiteral("no answer");
    }

    void leave(const QString& room) {
        QXmppPresence presence(QXmppPresence::Unavailable);
        presence.setTo(room + QLatin1Char('/') + id_);
        client_.sendPacket(presence);
    }

    // Waits until the room puts us out; returns that presence (null on time-out).
    QDomElement putOut(const QString& room) {
        const QString occupant = room + QLatin1Char('/') + id_;
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < 10000) {
            for (const QDomElement& p : qAsConst(presences_)) {
                if (p.attribute("from").compare(occupant, Qt::CaseInsensitive) == 0 &&
                    p.attribute("type") == QLatin1String("unavailable"))
                    return p;
            }
            QTest::qWait(20);
        }
        return QDomElement();
    }

    QDomElement ask(QXmppIq::Type type, const QString& to, const QXmppElement& query) {
        ElementIq iq(type, to, query);
        answers_.insert(iq.id(), QDomElement());
        client_.sendPacket(iq);
        QElapsedTimer clock;
        clock.start();
        while (answers_.value(iq.id()).isNull() && clock.elapsed() < 10000) QTest::qWait(20);
        return answers_.take(iq.id());
    }

    QString jid() const { return id_ + QLatin1Char('@') + domain_; }

    // The back end's membership notices received so far ("event user project title"),
    // once `count` of them are in (or after a time-out).
    QStringList notices(int count) {
        QElapsedTimer clock;
        clock.start();
        while (notices_.size() < count && clock.elapsed() < 10000) QTest::qWait(20);
        return notices_;
    }

    // The custom messages (task cards) received in rooms, once `count` are in.
    QStringList cards(int count) {
        QElapsedTimer clock;
        clock.start();
        while (cards_.size() < count && clock.elapsed() < 10000) QTest::qWait(20);
        return cards_;
    }

    // Cards sent to us alone: "from for card".
    QStringList direct(int count) {
        QElapsedTimer clock;
        clock.start();
        while (direct_.size() < count && clock.elapsed() < 10000) QTest::qWait(20);
        return direct_;
    }

private:
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
    void catchesUpAfterTheKeeperWasAway();
    void aRefusedAdminLeavesRoomsPending();
    void aDeadNodeCostsAReconnectNotTheRooms();
    void handEditsAreUndoneByTheRegularCheck();
    void taskCardsQueuedWhileTheKeeperWasAwayReachTheRoom();

private:
    QJsonObject call(const std::string& path, const QString& session = QString());
    // The same as a POST, as every change must be.
    QJsonObject change(const std::string& path, const QString& session = QString());
    User signIn(int index);
    QString room(qint64 projectId) const {
        return QStringLiteral("%1@conference.%2").arg(projectId).arg(prosody_.domain());
    }
    bool waitReady(qint64 projectId, const QString& session);
    qint64 createProject(const User& owner, const QString& title, const QStringList& members);

    ProsodyServer prosody_;
    QTemporaryDir dir_;
    std::unique_ptr<Database> db_;
    std::unique_ptr<RoomKeeper> keeper_;
    std::unique_ptr<ImProvisioner> accounts_;  // outlives the server, which uses it
    std::unique_ptr<BackendServer> server_;
    std::unique_ptr<httplib::Client> http_;
    QStringList userNames_;
};

void RoomKeeperTest::initTestCase() {
    QVERIFY2(prosody_.start(), qPrintable(prosody_.lastError()));
    QVERIFY(!prosody_.adminJid().isEmpty());
    db_ = std::make_unique<Database>(QStringLiteral("sqlite:") + dir_.filePath("directory.db"));
    QVERIFY(db_->createSchema());
    QString error;
    QVERIFY2(DemoCompany::seedDemo(db_.get(), 1, &error), qPrintable(error));
    userNames_ = DemoCompany::accounts(db_.get(), 5);
    std::unique_ptr<ImProvisioner>& accounts = accounts_;
    if (ProsodyServer::isEjabberd()) {
        EjabberdApiProvisioner::Settings api;
        api.api = QUrl(prosody_.apiUrl());
        api.domain = prosody_.domain();
        api.adminJid = prosody_.adminJid();
        api.adminSecret = prosody_.adminSecret();
        api.caFile = prosody_.caFile();
        api.rosterGroup = prosody_.rosterGroup();
        accounts = std::make_unique<EjabberdApiProvisioner>(api);
    } else {
        accounts = std::make_unique<ProsodyStoreProvisioner>(prosody_.dataDir(), prosody_.domain());
    }
    QVERIFY2(accounts->provision(DemoCompany::imAccounts(db_.get()), &error), qPrintable(error));

    RoomKeeper::Settings settings;
    settings.host = prosody_.host();
    settings.caFile = prosody_.caFile();
    settings.port = prosody_.port();
    settings.domain = prosody_.domain();
    settings.adminJid = prosody_.adminJid();
    settings.adminSecret = prosody_.adminSecret();
    settings.retryMaxMs = 300;
    settings.failedRetryMs = 1000;
    keeper_ = std::make_unique<RoomKeeper>(db_.get(), settings);
    keeper_->start();

    BackendServer::Options options;
    options.filesDir = dir_.filePath("files");
    options.threads = 4;
    server_ = std::make_unique<BackendServer>(db_.get(), options);
    server_->setRoomKeeper(keeper_.get());
    server_->setProvisioner(accounts_.get());
    QVERIFY(server_->start(QStringLiteral("127.0.0.1"), 0));
    http_ = std::make_unique<httplib::Client>("127.0.0.1", server_->port());
}

void RoomKeeperTest::cleanupTestCase() {
    http_.reset();
    if (server_) server_->stop();
    if (keeper_) keeper_->stop();
}

QJsonObject RoomKeeperTest::call(const std::string& path, const QString& session) {
    httplib::Headers headers;
    if (!session.isEmpty()) headers.emplace("Cookie", ("QXSESSION=" + session).toStdString());
    const auto r = http_->Get(path.c_str(), headers);
    return r ? QJsonDocument::fromJson(QByteArray::fromStdString(r->body)).object() : QJsonObject();
}

QJsonObject RoomKeeperTest::change(const std::string& path, const QString& session) {
    httplib::Headers headers;
    if (!session.isEmpty()) headers.emplace("Cookie", ("QXSESSION=" + session).toStdString());
    const auto r = http_->Post(path.c_str(), headers, "", "application/x-www-form-urlencoded");
    return r ? QJsonDocument::fromJson(QByteArray::fromStdString(r->body)).object() : QJsonObject();
}

User RoomKeeperTest::signIn(int index) {
    const auto r =
        http_->Post("/work/checkIn.htm?m=MobileLogin",
                    "username=" + enc(userNames_.at(index)) + "&password=quelix123&client=3",
                    "application/x-www-form-urlencoded");
    const QJsonObject user = QJsonDocument::fromJson(QByteArray::fromStdString(r ? r->body : ""))
                                 .object()
                                 .value("results")
                                 .toObject();
    return {user.value("id").toString(), user.value("sessionId").toString(),
            user.value("imSecret").toString()};
}

bool RoomKeeperTest::waitReady(qint64 projectId, const QString& session) {
    const std::string path =
        "/work/editProj.htm?m=roomState&projectId=" + std::to_string(projectId);
    QElapsedTimer clock;
    clock.start();
    QJsonObject state;
    while (clock.elapsed() < 20000) {
        state = call(path, session).value("results").toObject();
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
    if (env.value("errorCode").toInt(-1) != 0) return 0;
    return env.value("results").toObject().value("projectId").toString().toLongLong();
}

void RoomKeeperTest::demoRoomsAreMembersOnlyAndPersistent() {
    const User first = signIn(0);
    QSqlQuery q(db_->connection());
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

    // The second demo colleague is in every project; the fourth is not in the first one.
    const qint64 p = projects.first();
    const User second = signIn(1);
    Colleague member(prosody_, second.id, second.secret);
    QVERIFY(member.online());
    QSqlQuery in(db_->connection());
    in.prepare("SELECT 1 FROM project_member WHERE project_id = ? AND user_id = ?");
    int outsiderIndex = 2;
    User outsider;
    for (; outsiderIndex < 5; ++outsiderIndex) {
        outsider = signIn(outsiderIndex);
        in.addBindValue(p);
        in.addBindValue(outsider.id);
        QVERIFY(in.exec());
        if (!in.next()) break;
    }
    QVERIFY2(outsiderIndex < 5, "every early colleague is in the first project");
    Colleague stranger(prosody_, outsider.id, outsider.secret);
    QVERIFY(stranger.online());

    // What the room says about itself: members only, kept when empty, hidden, named.
    const QDomElement info =
        member.ask(QXmppIq::Get, room(p), MucProtocol::query(MucProtocol::kDiscoInfo));
    QVERIFY(!info.isNull());
    QStringList features;
    const QDomElement query = info.firstChildElement("query");
    for (QDomElement f = query.firstChildElement("feature"); !f.isNull();
         f = f.nextSiblingElement("feature")) {
        features << f.attribute("var");
    }
    QVERIFY(features.contains("muc_membersonly"));
    QVERIFY(features.contains("muc_persistent"));
    QVERIFY(features.contains("muc_hidden"));
    QVERIFY(features.contains("muc_nonanonymous"));
    QCOMPARE(query.firstChildElement("identity").attribute("name"), titles.value(p));

    // Members may read the member list of such a room: it is exactly the directory's.
    QStringList listed = MucProtocol::listedJids(
        member.ask(QXmppIq::Get, room(p), MucProtocol::affiliationQuery("member")));
    QStringList expected;
    QSqlQuery m(db_->connection());
    m.prepare("SELECT user_id FROM project_member WHERE project_id = ? AND user_id <> ?");
    m.addBindValue(p);
    m.addBindValue(owners.value(p));
    QVERIFY(m.exec());
    while (m.next()) expected << m.value(0).toString() + '@' + prosody_.domain();
    listed.sort();
    expected.sort();
    QCOMPARE(listed, expected);
    QStringList owned = MucProtocol::listedJids(
        member.ask(QXmppIq::Get, room(p), MucProtocol::affiliationQuery("owner")));
    owned.sort();
    QStringList expectedOwners{prosody_.adminJid(), owners.value(p) + '@' + prosody_.domain()};
    expectedOwners.sort();
    QCOMPARE(owned, expectedOwners);

    QCOMPARE(member.enter(room(p)), QString());
    QCOMPARE(stranger.enter(room(p)), QStringLiteral("registration-required"));
    // Nobody but the back end makes rooms (Prosody says "not-allowed", ejabberd "forbidden").
    QVERIFY(QStringList({QStringLiteral("not-allowed"), QStringLiteral("forbidden")})
                .contains(stranger.enter(room(999999))));
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
    QJsonObject env = change("/work/editProj.htm?m=addMember&projectId=" + std::to_string(p) +
                                 "&userIds=" + c.id.toStdString(),
                             owner.session);
    QCOMPARE(env.value("errorCode").toInt(-1), 0);
    QCOMPARE(env.value("results").toObject().value("memberCount").toString(), QStringLiteral("3"));
    QVERIFY(waitReady(p, owner.session));
    QCOMPARE(carol.enter(room(p)), QString());
    QCOMPARE(carol.notices(1), QStringList{"joined " + c.id + tail});
    QCOMPARE(bob.notices(2).last(), "joined " + c.id + tail);

    // Removed by the owner while inside: put out at once, and kept out.
    env = call("/work/editProj.htm?&kickUserId=" + b.id.toStdString() +
                   "&projectId=" + std::to_string(p) + "&m=exitPro",
               owner.session);
    QCOMPARE(env.value("errorCode").toInt(-1), 0);
    const QDomElement out = bob.putOut(room(p));
    QVERIFY(!out.isNull());
    QVERIFY(MucProtocol::statusCodes(out).contains(321));  // affiliation change
    QVERIFY(waitReady(p, owner.session));
    QCOMPARE(bob.enter(room(p)), QStringLiteral("registration-required"));
    QCOMPARE(bob.notices(3).last(), "kicked " + b.id + tail);
    QCOMPARE(carol.notices(2).last(), "kicked " + b.id + tail);

    // Dissolved: the room goes, with everyone in it.
    const QString sign = call("/rest/auth/client.htm", owner.session)
                             .value("results")
                             .toObject()
                             .value("md5Sign")
                             .toString();
    env = call(
        "/work/editProj.htm?&projectId=" + std::to_string(p) + "&sign=" + enc(sign) + "&m=delProj",
        owner.session);
    QCOMPARE(env.value("errorCode").toInt(-1), 0);
    const QDomElement destroyed = carol.putOut(room(p));
    QVERIFY(!destroyed.isNull());
    QVERIFY(!destroyed.firstChildElement("x").firstChildElement("destroy").isNull());
    QCOMPARE(carol.notices(3).last(), "dismissed " + owner.id + tail);
    QCOMPARE(bob.notices(3).size(), 3);  // no longer a member: not told
    QVERIFY(waitReady(p, owner.session));
    QCOMPARE(call("/work/editProj.htm?m=roomState&projectId=" + std::to_string(p), owner.session)
                 .value("results")
                 .toObject()
                 .value("dissolved")
                 .toString(),
             QStringLiteral("1"));
    QVERIFY(!olga.enter(room(p)).isEmpty());
}

void RoomKeeperTest::addressesCheckTheCaller() {
    const User owner = signIn(0);
    const User other = signIn(1);
    // A colleague and a project of another company on the same back end.
    QSqlQuery q(db_->connection());
    QVERIFY(
        q.exec("INSERT INTO users (id, company_id, dept_id, user_name, real_name, work_nick,"
               " mobile, email, date_created, full_pinyin, short_pinyin, password_hash,"
               " im_secret, open_id) VALUES (90001, 2, 1, 'elsewhere', 'x', 'x', '', '', '',"
               " '', '', 'x', 'x', '')"));
    QVERIFY(
        q.exec("INSERT INTO project (id, company_id, title, owner_id, date_created)"
               " VALUES (90002, 2, 'theirs', 90001, '')"));
    auto code = [this](const std::string& path, const QString& session) {
        return change(path, session).value("errorCode").toInt(-1);
    };
    const std::string create = "/work/editProj.htm?m=createProj&title=";
    QCOMPARE(code(create + "x", QString()), 1003);
    QCOMPARE(code(create + "", owner.session), 1001);
    QCOMPARE(code(create + enc(QString(101, QLatin1Char('x'))), owner.session), 1001);
    QCOMPARE(code(create + "a%0Ab", owner.session), 1001);
    QCOMPARE(code(create + "x&memberIds=1,abc", owner.session), 1001);
    QCOMPARE(code(create + "x&memberIds=90001", owner.session), 1006);

    const qint64 p = createProject(owner, QStringLiteral("only mine"), {});
    QVERIFY(p > 0);
    const std::string add = "/work/editProj.htm?m=addMember&projectId=" + std::to_string(p);
    QCOMPARE(code(add + "&userIds=" + other.id.toStdString(), QString()), 1003);
    QCOMPARE(code(add + "&userIds=" + other.id.toStdString(), other.session), 1004);
    QCOMPARE(code(add + "&userIds=90001", owner.session), 1006);
    QCOMPARE(code(add + "&userIds=", owner.session), 1001);
    QCOMPARE(
        code("/work/editProj.htm?m=addMember&projectId=90002&userIds=" + owner.id.toStdString(),
             owner.session),
        1006);

    const std::string state = "/work/editProj.htm?m=roomState&projectId=";
    QCOMPARE(code(state + std::to_string(p), QString()), 1003);
    QCOMPARE(code(state + "90002", owner.session), 1006);
    QCOMPARE(code(state + std::to_string(p), other.session), 0);  // same company may look
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
    QCOMPARE(call("/work/editProj.htm?&kickUserId=" + c.id.toStdString() +
                      "&projectId=" + std::to_string(kept) + "&m=exitPro",
                  c.session)
                 .value("errorCode")
                 .toInt(-1),
             0);
    const QString sign = call("/rest/auth/client.htm", owner.session)
                             .value("results")
                             .toObject()
                             .value("md5Sign")
                             .toString();
    QCOMPARE(call("/work/editProj.htm?&projectId=" + std::to_string(doomed) + "&sign=" + enc(sign) +
                      "&m=delProj",
                  owner.session)
                 .value("errorCode")
                 .toInt(-1),
             0);
    const qint64 fresh = createProject(owner, QStringLiteral("made while away"), {d.id});
    QVERIFY(fresh > 0);
    QTest::qWait(500);
    QCOMPARE(
        call("/work/editProj.htm?m=roomState&projectId=" + std::to_string(fresh), owner.session)
            .value("results")
            .toObject()
            .value("state")
            .toString(),
        QStringLiteral("pending"));

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

void RoomKeeperTest::catchesUpAfterTheKeeperWasAway() {
    const User owner = signIn(0);
    const User d = signIn(3);
    const qint64 p = createProject(owner, QStringLiteral("quiet"), {});
    QVERIFY(p > 0);
    QVERIFY(waitReady(p, owner.session));

    // The back end restarts its room keeping (as after a restart of the back end itself):
    // what changed in the directory meanwhile reaches the room.
    keeper_->stop();
    QCOMPARE(change("/work/editProj.htm?m=addMember&projectId=" + std::to_string(p) +
                        "&userIds=" + d.id.toStdString(),
                    owner.session)
                 .value("errorCode")
                 .toInt(-1),
             0);
    keeper_->start();
    QVERIFY(waitReady(p, owner.session));
    Colleague dave(prosody_, d.id, d.secret);
    QVERIFY(dave.online());
    QCOMPARE(dave.enter(room(p)), QString());
}

void RoomKeeperTest::aRefusedAdminLeavesRoomsPending() {
    RoomKeeper::Settings settings;
    settings.host = prosody_.host();
    settings.caFile = prosody_.caFile();
    settings.port = prosody_.port();
    settings.domain = prosody_.domain();
    settings.adminJid = prosody_.adminJid();
    settings.adminSecret = QStringLiteral("not the secret");
    settings.retryMaxMs = 200;
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression(QStringLiteral("rooms: XMPP session: the server "
                                                           "refused .* and its secret")));
    RoomKeeper keeper(db_.get(), settings);
    keeper.start();
    QTest::qWait(1500);  // several attempts, one log line
    QVERIFY(!keeper.isOnline());
    QCOMPARE(keeper.state(50001), RoomQueue::State::Pending);
    keeper.stop();
}

// A cluster whose first node is down: the keeper goes on to the next one at once, without
// waiting out its back-off, and keeps the rooms there.
void RoomKeeperTest::aDeadNodeCostsAReconnectNotTheRooms() {
    QTcpServer closed;
    QVERIFY(closed.listen(QHostAddress::LocalHost));
    const quint16 dead = closed.serverPort();
    closed.close();
    const User owner = signIn(0);
    const User d = signIn(3);
    keeper_->stop();
    const qint64 p = createProject(owner, QStringLiteral("on the second node"), {d.id});
    QVERIFY(p > 0);

    RoomKeeper::Settings settings;
    settings.host =
        QStringLiteral("127.0.0.1:%1,%2:%3").arg(dead).arg(prosody_.host()).arg(prosody_.port());
    settings.caFile = prosody_.caFile();
    settings.domain = prosody_.domain();
    settings.adminJid = prosody_.adminJid();
    settings.adminSecret = prosody_.adminSecret();
    settings.retryMaxMs = 30000;  // a whole round's pause would outlast the test
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("cannot reach 127.0.0.1:"));
    QElapsedTimer clock;
    clock.start();
    RoomKeeper cluster(db_.get(), settings);
    cluster.start();
    QTRY_VERIFY_WITH_TIMEOUT(cluster.isOnline(), 5000);
    QVERIFY2(clock.elapsed() < 3000, qPrintable(QString::number(clock.elapsed())));
    // The check at sign-in makes the room the keeper did not hear about.
    QTRY_COMPARE_WITH_TIMEOUT(cluster.state(p), RoomQueue::State::Ready, 10000);
    Colleague dave(prosody_, d.id, d.secret);
    QVERIFY(dave.online());
    QCOMPARE(dave.enter(room(p)), QString());
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
    RoomKeeper::Settings settings;
    settings.host = prosody_.host();
    settings.caFile = prosody_.caFile();
    settings.port = prosody_.port();
    settings.domain = prosody_.domain();
    settings.adminJid = prosody_.adminJid();
    settings.adminSecret = prosody_.adminSecret();
    settings.recheckMs = 1000;
    RoomKeeper often(db_.get(), settings);
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
    httplib::Headers as{{"Cookie", ("QXSESSION=" + owner.session).toStdString()}};
    const auto page =
        http_->Get(("/work/task.htm?m=create&projectId=" + std::to_string(p)).c_str(), as);
    QVERIFY(page);
    const QString token = QRegularExpression("name=\"formToken\" value=\"([0-9a-f]+)\"")
                              .match(QString::fromStdString(page->body))
                              .captured(1);
    const auto made = http_->Post(
        "/work/task.htm", as,
        "m=create&projectId=" + std::to_string(p) + "&title=" + enc(QStringLiteral("横幅")) +
            "&executorId=" + d.id.toStdString() + "&formToken=" + token.toStdString(),
        "application/x-www-form-urlencoded");
    QVERIFY(made && made->status == 303);
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
    auto waiting = [&] {
        QSqlQuery q(db_->connection());
        return q.exec("SELECT COUNT(*) FROM task_card") && q.next() ? q.value(0).toInt() : -1;
    };
    QTRY_COMPARE_WITH_TIMEOUT(waiting(), 0, 10000);
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
    QTRY_COMPARE_WITH_TIMEOUT(
        [&] {
            QSqlQuery q(db_->connection());
            return q.exec("SELECT COUNT(*) FROM task_direct_card") && q.next() ? q.value(0).toInt()
                                                                               : -1;
        }(),
        0, 10000);

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
    QSqlQuery secret(db_->connection());
    secret.prepare("SELECT im_secret FROM users WHERE id = ?");
    secret.addBindValue(assistant.toLongLong());
    QVERIFY(secret.exec() && secret.next());
    Colleague assistantSession(prosody_, assistant, secret.value(0).toString());
    QVERIFY(assistantSession.online());
    QCOMPARE(change("/work/editProj.htm?m=addMember&projectId=" + std::to_string(p) +
                        "&userIds=" + assistant.toStdString(),
                    owner.session)
                 .value("errorCode")
                 .toInt(),
             1006);
    // A task the owner makes for itself tells nobody directly.
    const auto own = http_->Post("/work/task.htm", as,
                                 "m=create&projectId=" + std::to_string(p) +
                                     "&title=" + enc(QStringLiteral("自办")) +
                                     "&formToken=" + token.toStdString(),
                                 "application/x-www-form-urlencoded");
    QVERIFY(own && own->status == 303);
    QCOMPARE(dave.cards(2).size(), 2);
    QTest::qWait(300);
    QCOMPARE(dave.direct(1).size(), 1);
}

QTEST_GUILESS_MAIN(RoomKeeperTest)
#include "tst_roomkeeper.moc"
