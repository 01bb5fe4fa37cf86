// base:: callbacks, reference counts and paths, and the prg root.
#include <QtTest>
#include <atomic>
#include <thread>

#include <QImage>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>

#include "base/at_exit.h"
#include "base/bind.h"
#include "base/file_path.h"
#include "base/path_service.h"
#include "base/ref_ptr_counted.h"
#include "openim/iim_core_service.h"
#include "openim/ilogin_account_service.h"
#include "openim/service_guids.h"
#include "prg/iprg_com.h"
#include "prg/prg_com.h"
#include "prg/prg_component.h"
#include "sdk/sdk_instance.h"
#include "store/archive_order.h"
#include "store/message_store.h"
#include "support/stored_text.h"

namespace {

std::atomic<int> g_alive{0};

class Named {
public:
    std::string Name() const { return "receiver"; }
};

class Receiver : public Named, public base::RefCountedThreadSafe<Receiver> {
public:
    std::size_t Size() const { return last.account.size(); }
    Receiver() { ++g_alive; }
    void Add(int bound, const std::string& text, int* out) { *out = bound + int(text.size()); }
    void Take(const openim::IMUserID& user) { last = user; }
    openim::IMUserID last;

private:
    friend class base::RefCountedThreadSafe<Receiver>;
    ~Receiver() { --g_alive; }
};

// A service a test puts in place of the SDK's own.
class FakeAccount : public base::RefPtrCounted<openim::ILoginAccountService> {
public:
    openim::IMUserID GetLoginUserID() override { return {L"1", L"fake"}; }
    bool IsLoggedIn() override { return true; }
    ~FakeAccount() override { ++destroyed; }
    static inline int destroyed = 0;
};

}  // namespace

class BaseTest : public QObject {
    Q_OBJECT
private slots:
    void bindKeepsReceiverAliveAndTakesCompatibleSignatures();
    void filePathDirNameAndAppend();
    void rootFindsComponentsByExactGuidText();
    void rootNeedsAnAtExitManagerAndAPath();
    void emoticonCatalogueHasDrawnPictures();
    void unreadWaitsForAPictureStillDownloading();
    void batchCommitsOnceAndKeepsDuplicatesOut();
    void textsComeBackAsWrittenAndOlderStoresOpen();
    void archiveReadsTakeTheirPlaceWithinASecond();
};

void BaseTest::bindKeepsReceiverAliveAndTakesCompatibleSignatures() {
    base::Callback<void(const std::string&, int*)> cb;
    {
        auto* r = new Receiver;
        base::scoped_refptr<Receiver> owner(r);
        cb = base::Bind(&Receiver::Add, r, 40);
    }
    QCOMPARE(g_alive.load(), 1);  // only the callback holds it now
    int out = 0;
    cb.Run("ab", &out);
    QCOMPARE(out, 42);
    // Copies run and drop on other threads; the receiver goes with the last of them.
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([copy = cb]() mutable {
            int n = 0;
            copy.Run("x", &n);
            copy.Reset();
        });
    for (auto& t : threads) t.join();
    QCOMPARE(g_alive.load(), 1);
    cb.Reset();
    QCOMPARE(g_alive.load(), 0);

    base::scoped_refptr<Receiver> r(new Receiver);
    // A member taking `const T&` registered where the SDK offers `T` by value.
    base::Callback<void(openim::IMUserID)> byValue = base::Bind(&Receiver::Take, r.get());
    byValue.Run(openim::IMUserID(L"7", L"bob"));
    QVERIFY(r->last == openim::IMUserID(L"7", L"bob"));
    // Const members, members of a base class, and a scoped_refptr as the receiver.
    QCOMPARE(base::Bind(&Receiver::Size, r).Run(), std::size_t(3));
    QCOMPARE(base::Bind(&Named::Name, r.get()).Run(), std::string("receiver"));
}

void BaseTest::filePathDirNameAndAppend() {
    const base::FilePath program(FILE_PATH_LITERAL("/opt/quelix/bin/Quelix"));
    QCOMPARE(program.DirName().value(), std::string("/opt/quelix/bin"));
    QCOMPARE(program.DirName().Append(FILE_PATH_LITERAL("resource")).value(),
             std::string("/opt/quelix/bin/resource"));
    QCOMPARE(base::FilePath("/opt/x/").DirName().value(), std::string("/opt"));
    QCOMPARE(base::FilePath("Quelix").DirName().value(), std::string("."));
    QCOMPARE(base::FilePath("/").DirName().value(), std::string("/"));
    QCOMPARE(base::FilePath("/a/").Append("b").value(), std::string("/a/b"));
    QCOMPARE(base::FilePath("/a").Append("").value(), std::string("/a"));
    QCOMPARE(base::FilePath::FromUTF8Unsafe("/tmp/收到").AsUTF8Unsafe(), std::string("/tmp/收到"));
}

void BaseTest::rootFindsComponentsByExactGuidText() {
    int hookRuns = 0;
    prg::PrgCom root([&](prg::PrgCom&, const base::FilePath&) { ++hookRuns; });
    QCOMPARE(root.Init(base::FilePath("/bin/true")), prg::PRG_OK);
    QCOMPARE(root.Init(base::FilePath("/bin/true")), prg::PRG_OK);
    QCOMPARE(hookRuns, 1);

    auto* component = new prg::PrgComponent;
    component->AddRef();
    auto* fake = new FakeAccount;
    component->SetInterface(openim::kPresenceInterface, fake);
    QCOMPARE(root.RegisterComponent(openim::kPresenceModule, component), prg::PRG_OK);
    component->Release();

    // The doubled braces are part of the name; single braces or other case find nothing.
    QVERIFY(!root.GetService<openim::ILoginAccountService>("{CDF0254D-FADE-4ABF-A354-832336D71990}",
                                                           openim::kPresenceInterface));
    QVERIFY(!root.GetService<openim::ILoginAccountService>(
        "{{cdf0254d-fade-4abf-a354-832336d71990}}", openim::kPresenceInterface));
    QVERIFY(!root.GetService<openim::ILoginAccountService>(
        openim::kPresenceModule, "{746CDF64-1614-4F3B-859B-EC8F3F724EE7}"));
    openim::ILoginAccountService* found = root.GetService<openim::ILoginAccountService>(
        openim::kPresenceModule, openim::kPresenceInterface);
    QVERIFY(found);
    QCOMPARE(found->GetLoginUserID().account.str(), std::wstring(L"fake"));
    found->Release();  // the caller's reference; the component still holds one
    QCOMPARE(FakeAccount::destroyed, 0);
    root.Uninit();
    QCOMPARE(FakeAccount::destroyed, 1);
}

void BaseTest::rootNeedsAnAtExitManagerAndAPath() {
    QVERIFY(GetPrgCOM() == nullptr);
    {
        base::AtExitManager exitManager;
        prg::IPrgCOM* root = GetPrgCOM();
        QVERIFY(root);
        QCOMPARE(GetPrgCOM(), root);
        QCOMPARE(root->Init(base::FilePath()), prg::PrgResult(0x80004005u));
        // The program's path, from the path service.
        base::FilePath program;
        QVERIFY(PathService::Get(5, &program));
        QCOMPARE(QString::fromStdString(program.AsUTF8Unsafe()),
                 QCoreApplication::applicationFilePath());
        QVERIFY(!PathService::Get(99, &program));
        QCOMPARE(root->Init(program), prg::PRG_OK);
        // Every one of the ten services answers under its GUID pair.
        const std::pair<const char*, const char*> table[] = {
            {openim::kCoreModule, openim::kCoreInterface},
            {openim::kMediaModule, openim::kMediaInterface},
            {openim::kConversationModule, openim::kConversationInterface},
            {openim::kPresenceModule, openim::kPresenceInterface},
            {openim::kLoginAccountModule, openim::kLoginAccountInterface},
            {openim::kLoginModule, openim::kLoginInterface},
            {openim::kSyncModule, openim::kSyncInterface},
            {openim::kTribeMediaModule, openim::kTribeMediaInterface},
            {openim::kTribeModule, openim::kTribeInterface},
            {openim::kXPushModule, openim::kXPushInterface},
        };
        for (const auto& [module, iface] : table) {
            prg::IPrgUnknown* service = root->GetService<prg::IPrgUnknown>(module, iface);
            QVERIFY2(service, module);
            service->Release();
        }
    }
    QVERIFY(GetPrgCOM() == nullptr);  // torn down with the manager
}

void BaseTest::emoticonCatalogueHasDrawnPictures() {
    SdkInstance sdk(QString::fromLocal8Bit(qgetenv("QUELIX_TEST_TMP")));
    base::FilePath program;
    QVERIFY(PathService::Get(5, &program));
    QCOMPARE(sdk.root()->Init(program), prg::PRG_OK);
    base::scoped_refptr<openim::IIMCoreService> core;
    core.adopt(sdk.root()->GetService<openim::IIMCoreService>(openim::kCoreModule,
                                                              openim::kCoreInterface));
    std::vector<openim::IMEmotionItem> items;
    core->GetEmotionItems(&items);
    QVERIFY(items.size() >= 40);
    QSet<QString> codes;
    for (const auto& item : items) {
        const QString code = QString::fromStdWString(item.emotionShortCut.str());
        QVERIFY2(!codes.contains(code), qPrintable(code));
        codes.insert(code);
        QImage picture(QString::fromStdWString(item.emPngFixedPath.str()));
        QVERIFY2(!picture.isNull(), qPrintable(code));
        // Drawn from the colour font: not empty, and some of it in colour (a
        // monochrome fallback font would give thin black outlines).
        int opaque = 0, coloured = 0;
        for (int y = 0; y < picture.height(); ++y)
            for (int x = 0; x < picture.width(); ++x) {
                const QColor c = picture.pixelColor(x, y);
                if (c.alpha() > 128) ++opaque;
                if (c.alpha() > 128 && c.saturation() > 64) ++coloured;
            }
        QVERIFY2(opaque > picture.width() * picture.height() / 25, qPrintable(code));
        QVERIFY2(coloured > 0, qPrintable(code));
    }
}

void BaseTest::unreadWaitsForAPictureStillDownloading() {
    QTemporaryDir dir;
    MessageStore store;
    QVERIFY(store.open(dir.filePath("messages.db")));
    auto message = [](int kind, const QString& origin, bool pending) {
        StoredMessage m = storedText("alice", origin, origin);
        m.kind = kind;
        m.pendingMedia = pending;
        return m;
    };
    QVERIFY(store.insert(message(1, "before", false)));
    const std::optional<quint64> picture = store.insert(message(2, "picture", true));
    QVERIFY(picture);
    QVERIFY(store.insert(message(1, "after", false)));
    // Only what was written before the picture, until the picture is here.
    QCOMPARE(store.unreadCount("alice"), 1);
    QCOMPARE(store.unread("alice").size(), 1);
    QCOMPARE(store.unread("alice").first().originId, QStringLiteral("before"));
    store.finishMedia(*picture, dir.filePath("picture.png"));
    QStringList order;
    for (const StoredMessage& m : store.unread("alice")) order << m.originId;
    QCOMPARE(order, (QStringList{"before", "picture", "after"}));
    QCOMPARE(store.unreadCount("alice"), 3);
}

// A burst is stored in one transaction: nothing of it is visible to another reader of the
// file until the batch ends (read marks inside it included), duplicates within the batch
// are still caught, and all of it is there after the store is opened again.
void BaseTest::batchCommitsOnceAndKeepsDuplicatesOut() {
    QTemporaryDir dir;
    const QString file = dir.filePath("messages.db");
    {
        MessageStore store;
        QVERIFY(store.open(file));
        MessageStore reader;
        QVERIFY(reader.open(file));
        auto message = [](int i) {
            return storedText("bob", QStringLiteral("m%1").arg(i), QStringLiteral("o%1").arg(i),
                              QStringLiteral("s%1").arg(i), i);
        };
        const std::optional<quint64> kept = store.insert(message(0));
        QVERIFY(kept);
        store.beginBatch();
        for (int i = 1; i <= 50; ++i) QVERIFY(store.insert(message(i)));
        QVERIFY(!store.insert(message(7)));     // the same server id again
        store.markRead(QList<quint64>{*kept});  // nested: must not commit the batch early
        QCOMPARE(reader.unreadCount("bob"), 1);
        QCOMPARE(store.unreadCount("bob"), 50);
        QVERIFY(store.endBatch());
        QCOMPARE(reader.unreadCount("bob"), 50);
    }
    MessageStore again;
    QVERIFY(again.open(file));
    const QList<StoredMessage> unread = again.unread("bob");
    QCOMPARE(unread.size(), 50);
    QCOMPARE(unread.first().content, QStringLiteral("m1"));
    QCOMPARE(unread.last().content, QStringLiteral("m50"));

    // Read marks for more ids than one statement takes: exactly those, and no others.
    QList<quint64> shown;
    for (int i = 0; i < 49; ++i) shown << unread.at(i).id;
    again.markRead(shown);
    const QList<StoredMessage> left = again.unread("bob");
    QCOMPARE(left.size(), 1);
    QCOMPARE(left.first().content, QStringLiteral("m50"));
    QList<quint64> more;
    for (int i = 51; i <= 180; ++i) {
        StoredMessage m = unread.first();
        m.id = 0;
        m.content = QStringLiteral("n%1").arg(i);
        m.stanzaId = QStringLiteral("t%1").arg(i);
        m.originId = QStringLiteral("p%1").arg(i);
        m.seq = 0;
        const std::optional<quint64> id = again.insert(m);
        QVERIFY(id);
        if (i != 120) more << *id;
    }
    again.markRead(more);
    QCOMPARE(again.unreadCount("bob"), 2);  // m50 and n120
}

// Texts go into the store bound in place as UTF-16: characters outside the basic plane,
// empty and missing texts come back as they went in. A store made with the earlier unread
// index is brought up to date when it is opened.
void BaseTest::textsComeBackAsWrittenAndOlderStoresOpen() {
    QTemporaryDir dir;
    const QString file = dir.filePath("messages.db");
    StoredMessage m;
    m.peer = m.sender = QStringLiteral("张三@quelix.test");
    m.content = QStringLiteral("表情 😀👍🏽 and \u00e9, quotes ' \" and a tab\t");
    m.summary = QString();       // missing
    m.url = QStringLiteral("");  // empty, not missing
    m.stanzaId = QString();      // no archive id yet
    m.originId = QStringLiteral("o1");
    m.time = 1700000000;
    m.fileSize = 5'000'000'000LL;
    m.unread = true;
    {
        MessageStore store;
        QVERIFY(store.open(file));
        QVERIFY(store.insert(m));
        QVERIFY(!store.insert(m));  // the same origin id again
        QSqlQuery q(QSqlDatabase::database(store.connectionName()));
        QVERIFY(q.exec("DROP INDEX messages_unread_order"));
        QVERIFY(q.exec("CREATE INDEX messages_unread ON messages(unread, peer)"));
    }
    MessageStore store;
    QVERIFY(store.open(file));
    const QList<StoredMessage> rows = store.unread(m.peer);
    QCOMPARE(rows.size(), 1);
    QCOMPARE(rows.first().content, m.content);
    QCOMPARE(rows.first().peer, m.peer);
    QVERIFY(rows.first().summary.isNull());
    QVERIFY(rows.first().stanzaId.isNull());
    QCOMPARE(rows.first().fileSize, m.fileSize);
    QSqlQuery q(QSqlDatabase::database(store.connectionName()));
    QVERIFY(q.exec("SELECT group_concat(name) FROM sqlite_master WHERE type = 'index' AND name "
                   "LIKE 'messages_unread%'") &&
            q.next());
    QCOMPARE(q.value(0).toString(), QStringLiteral("messages_unread_order"));
}

void BaseTest::archiveReadsTakeTheirPlaceWithinASecond() {
    QTemporaryDir dir;
    const QString file = dir.filePath("messages.db");
    MessageStore store;
    QVERIFY(store.open(file));
    auto message = [](const QString& name) {
        return storedText("bob", name, "o-" + name, "s-" + name);  // all in one second
    };
    // Stores a message of an archive read the way the engine does.
    auto fromArchive = [&](ArchiveOrder& order, const QString& name) {
        StoredMessage m = message(name);
        order.place(m);
        order.placed(m, store.insert(m).has_value());
    };
    auto order = [&] {
        QStringList out;
        for (const StoredMessage& m : store.page("bob", 0, 0, 10000)) out << m.content;
        return out;
    };

    QVERIFY(store.insert(message("a")));
    QVERIFY(store.insert(message("b")));
    ArchiveOrder catchUp(store);
    catchUp.start(ArchiveOrder::Direction::Forward);
    QVERIFY(store.insert(message("live")));  // came while the catch-up ran
    fromArchive(catchUp, "c1");
    fromArchive(catchUp, "c2");
    fromArchive(catchUp, "live");  // the archive's copy: what follows goes after it
    fromArchive(catchUp, "c3");
    QCOMPARE(order(), (QStringList{"a", "b", "c1", "c2", "live", "c3"}));

    // History pages, each older than the last, all within the same second.
    ArchiveOrder history(store);
    history.start(ArchiveOrder::Direction::Backward, "bob");
    fromArchive(history, "h1");
    fromArchive(history, "h2");
    history.start(ArchiveOrder::Direction::Backward, "bob");
    fromArchive(history, "g1");
    QCOMPARE(order().mid(0, 4), (QStringList{"g1", "h1", "h2", "a"}));

    // A long run after one message uses up the room before the next and moves it on.
    ArchiveOrder run(store);
    run.start(ArchiveOrder::Direction::Forward);
    fromArchive(run, "c1");
    QStringList many;
    for (int i = 0; i < 300; ++i) {
        many << QStringLiteral("r%1").arg(i);
        fromArchive(run, many.last());
    }
    QCOMPARE(order(), QStringList({"g1", "h1", "h2", "a", "b", "c1"}) + many +
                          QStringList({"c2", "live", "c3"}));
    QVERIFY(store.insert(message("live2")));  // after the rows moved on, not among them
    QCOMPARE(order().last(), QStringLiteral("live2"));

    // Reopened, the store goes on after what it holds.
    store.close();
    QVERIFY(store.open(file));
    QVERIFY(store.insert(message("later")));
    QCOMPARE(order().last(), QStringLiteral("later"));
}

QTEST_GUILESS_MAIN(BaseTest)
#include "tst_imsdk_base.moc"
