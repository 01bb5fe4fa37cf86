// The back end's building blocks where a fault would not show through HTTP quickly:
// password hashes, attachment names, generated companies, the log-in throttle, request heads,
// compressed pieces and the XMPP endpoint lists.
#include "database.h"
#include "democompany.h"
#include "filestore.h"
#include "gzippieces.h"
#include "loginthrottle.h"
#include "passwordhasher.h"
#include "prosodystoreprovisioner.h"
#include "requesthead.h"
#include "sdk/endpoint_list.h"

#include <QSqlQuery>
#include <QTemporaryDir>

#include <zlib.h>
#include <QtTest>

class ServerPartsTest : public QObject {
    Q_OBJECT

private slots:
    void passwordHashes();
    void attachmentNames_data();
    void attachmentNames();
    void storedNamesNeverLeaveTheFolder();
    void generatedCompany();
    void prosodyNameEncoding();
    void strangersCannotLockAnAccountOut();
    void guessersAreSlowedAcrossAccounts();
    void requestHeads();
    void gzipPiecesSentApartInflateToTheWhole();
    void endpointLists();
};

void ServerPartsTest::passwordHashes() {
    const PasswordHasher hasher(1000);
    const QString a = hasher.hash(QStringLiteral("密码 secret"));
    const QString b = hasher.hash(QStringLiteral("密码 secret"));
    QVERIFY(a != b);  // salted
    QVERIFY(!a.contains(QStringLiteral("secret")));
    QVERIFY(PasswordHasher::verify(QStringLiteral("密码 secret"), a));
    QVERIFY(PasswordHasher::verify(QStringLiteral("密码 secret"), b));
    QVERIFY(!PasswordHasher::verify(QStringLiteral("密码 secreT"), a));
    QVERIFY(!PasswordHasher::verify(QString(), a));
    // The stored text carries its own cost, so a hash made with another cost still verifies.
    QVERIFY(PasswordHasher::verify(QStringLiteral("x"),
                                   PasswordHasher(2000).hash(QStringLiteral("x"))));
    for (const QString& broken :
         {QString(), QStringLiteral("secret"), QStringLiteral("pbkdf2-sha256$0$AAAA$AAAA"),
          QStringLiteral("pbkdf2-sha256$1000$$"), a.left(a.size() - 4),
          QStringLiteral("md5$1$a$b")}) {
        QVERIFY2(!PasswordHasher::verify(QStringLiteral("secret"), broken), qPrintable(broken));
    }
}

void ServerPartsTest::attachmentNames_data() {
    QTest::addColumn<QString>("given");
    QTest::addColumn<QString>("kept");
    const char* const rows[][3] = {
        {"plain", "报告.docx", "报告.docx"},
        {"unix path", "../../etc/passwd", "passwd"},
        {"windows path", "C:\\Users\\me\\a.txt", "a.txt"},
        {"dots only", "..", ""},
        {"hidden", ".bashrc", "bashrc"},
        {"trailing dots", "a.txt. . ", "a.txt"},
        {"reserved and control", "a<b>|c\x01\n.txt", "abc.txt"},
        {"device-like", "CONSOLE.txt", "CONSOLE.txt"},
        {"device in a path", "dir/com9.zip", "_com9.zip"},
        {"empty", "", ""},
    };
    for (const auto& row : rows)
        QTest::newRow(row[0]) << QString::fromUtf8(row[1]) << QString::fromUtf8(row[2]);
    // Device names stay usable on Windows, whatever the case or extension.
    for (const char* device : {"CON", "NUL.txt", "COM1", "aux.tar.gz", "LPT1.log", "prn"}) {
        QTest::newRow(device) << QString::fromLatin1(device)
                              << QLatin1Char('_') + QString::fromLatin1(device);
    }
    QTest::newRow("long keeps extension")
        << QString(300, QLatin1Char('x')) + ".pdf" << QString(196, QLatin1Char('x')) + ".pdf";
}

void ServerPartsTest::attachmentNames() {
    QFETCH(QString, given);
    QFETCH(QString, kept);
    QCOMPARE(FileStore::sanitizeName(given), kept);
}

void ServerPartsTest::storedNamesNeverLeaveTheFolder() {
    QTemporaryDir dir;
    FileStore store(dir.filePath(QStringLiteral("files")), 10);
    const QString name = store.store("0123456789");
    QVERIFY(!name.isEmpty());
    QCOMPARE(store.pathOf(name), dir.filePath(QStringLiteral("files/")) + name);
    QVERIFY(store.store("0123456789a").isEmpty());  // over the limit
    for (const QString& bad : {QStringLiteral("../x"), QStringLiteral(".."), name.toUpper(),
                               name + QLatin1Char('/'), QStringLiteral("/etc/passwd")}) {
        QVERIFY2(store.pathOf(bad).isEmpty(), qPrintable(bad));
    }
}

void ServerPartsTest::generatedCompany() {
    QTemporaryDir dir;
    Database db(QStringLiteral("sqlite:%1/g.db").arg(dir.path()));
    QVERIFY(db.createSchema());
    QString error;
    QVERIFY2(DemoCompany::seedGenerated(&db, 2000, 100, 1, &error), qPrintable(error));
    QVERIFY(!DemoCompany::seedGenerated(&db, 10, 1, 1, &error));  // never on top of a company
    QSqlQuery q(db.connection());
    QVERIFY(
        q.exec(QStringLiteral("SELECT COUNT(*), COUNT(DISTINCT user_name), COUNT(DISTINCT dept_id),"
                              " COUNT(DISTINCT im_secret) FROM users")));
    QVERIFY(q.next());
    QCOMPARE(q.value(0).toInt(), 2000);
    QCOMPARE(q.value(1).toInt(), 2000);
    QVERIFY(q.value(2).toInt() > 90);
    QCOMPARE(q.value(3).toInt(), 2000);
    // Every department but the root hangs under an existing one.
    QVERIFY(
        q.exec(QStringLiteral("SELECT COUNT(*) FROM dept d WHERE d.parent_id <> 0 AND NOT EXISTS"
                              " (SELECT 1 FROM dept p WHERE p.id = d.parent_id)")));
    QVERIFY(q.next());
    QCOMPARE(q.value(0).toInt(), 0);
    // The demo company is the same on every run, apart from salts and IM secrets.
    QTemporaryDir a;
    QTemporaryDir b;
    QStringList names[2];
    int i = 0;
    for (QTemporaryDir* d : {&a, &b}) {
        Database demo(QStringLiteral("sqlite:%1/d.db").arg(d->path()));
        QVERIFY(demo.createSchema());
        QVERIFY(DemoCompany::seedDemo(&demo, 1, &error));
        QSqlQuery names_q(demo.connection());
        QVERIFY(names_q.exec(
            QStringLiteral("SELECT real_name, full_pinyin, dept_id FROM users ORDER BY id")));
        while (names_q.next()) {
            names[i] << names_q.value(0).toString() + names_q.value(1).toString() +
                            names_q.value(2).toString();
        }
        ++i;
    }
    QCOMPARE(names[0].size(), DemoCompany::kDemoColleagues);
    QCOMPARE(names[0], names[1]);
}

void ServerPartsTest::prosodyNameEncoding() {
    QCOMPARE(ProsodyStoreProvisioner::encodeName(QStringLiteral("conference.example.com")),
             QStringLiteral("conference%2eexample%2ecom"));
    QCOMPARE(ProsodyStoreProvisioner::encodeName(QStringLiteral("a_b-1")),
             QStringLiteral("a%5fb%2d1"));
}

void ServerPartsTest::strangersCannotLockAnAccountOut() {
    LoginThrottle::Limits limits;
    limits.freeAttempts = 3;
    LoginThrottle throttle(limits);
    const QString owner = QStringLiteral("10.0.0.1");
    const QString stranger = QStringLiteral("203.0.113.9");
    // A stranger's wrong passwords, one a minute for hours, pause only the stranger.
    for (int i = 0; i < 120; ++i) {
        if (throttle.waitMs(QStringLiteral("alice"), stranger) == 0)
            throttle.failed(QStringLiteral("alice"), stranger);
        throttle.advance(60000);
    }
    QCOMPARE(throttle.waitMs(QStringLiteral("alice"), owner), 0);
    throttle.failed(QStringLiteral("alice"), stranger);
    QVERIFY(throttle.waitMs(QStringLiteral("alice"), stranger) > 0);
    QCOMPARE(throttle.waitMs(QStringLiteral("alice"), owner), 0);
    // The owner's own mistakes pause the owner after the free attempts, with a growing pause,
    // and a right password clears them.
    throttle.failed(QStringLiteral("alice"), owner);
    throttle.failed(QStringLiteral("alice"), owner);
    QCOMPARE(throttle.waitMs(QStringLiteral("alice"), owner), 0);
    throttle.failed(QStringLiteral("alice"), owner);
    const qint64 first = throttle.waitMs(QStringLiteral("alice"), owner);
    QVERIFY(first > 0 && first <= limits.firstPauseMs);
    throttle.advance(first);
    throttle.failed(QStringLiteral("alice"), owner);
    QVERIFY(throttle.waitMs(QStringLiteral("alice"), owner) > first);
    throttle.succeeded(QStringLiteral("alice"), owner);
    QCOMPARE(throttle.waitMs(QStringLiteral("alice"), owner), 0);
    // A quiet spell forgives: after it, the free attempts are back.
    throttle.failed(QStringLiteral("bob"), owner);
    throttle.failed(QStringLiteral("bob"), owner);
    throttle.advance(limits.forgetAfterMs + 1);
    throttle.failed(QStringLiteral("bob"), owner);
    QCOMPARE(throttle.waitMs(QStringLiteral("bob"), owner), 0);
}

void ServerPartsTest::guessersAreSlowedAcrossAccounts() {
    LoginThrottle::Limits limits;
    limits.addressFreeAttempts = 10;
    LoginThrottle throttle(limits);
    const QString guesser = QStringLiteral("198.51.100.7");
    // One guess per account never reaches any account's limit, but the address's.
    for (int i = 0; i < 9; ++i) throttle.failed(QStringLiteral("user%1").arg(i), guesser);
    QCOMPARE(throttle.waitMs(QStringLiteral("someone"), guesser), 0);
    throttle.failed(QStringLiteral("user9"), guesser);
    QVERIFY(throttle.waitMs(QStringLiteral("someone"), guesser) > 0);
    QCOMPARE(throttle.waitMs(QStringLiteral("someone"), QStringLiteral("10.0.0.1")), 0);
    // Signing in to one's own account does not buy more guesses.
    throttle.succeeded(QStringLiteral("own"), guesser);
    QVERIFY(throttle.waitMs(QStringLiteral("someone"), guesser) > 0);
    // A flood of made-up names stays bounded and does not lift a pause.
    limits.maxEntries = 50;
    LoginThrottle small(limits);
    for (int i = 0; i < limits.freeAttempts; ++i)
        small.failed(QStringLiteral("victim"), QStringLiteral("a"));
    QVERIFY(small.waitMs(QStringLiteral("victim"), QStringLiteral("a")) > 0);
    for (int i = 0; i < 500; ++i)
        small.failed(QStringLiteral("n%1").arg(i), QStringLiteral("b%1").arg(i));
    QVERIFY(small.waitMs(QStringLiteral("victim"), QStringLiteral("a")) > 0);
}

void ServerPartsTest::requestHeads() {
    const auto scan = [](const QByteArray& bytes, size_t maxBytes = 1024, int maxLines = 10) {
        return RequestHead::scan(bytes.constData(), size_t(bytes.size()), maxBytes, maxLines);
    };
    QCOMPARE(scan("GET / HTTP/1.1\r\nHost: x\r\n").state, RequestHead::Incomplete);
    RequestHead head = scan("GET / HTTP/1.1\r\n\r\nGET /next");
    QCOMPARE(head.state, RequestHead::Complete);
    QCOMPARE(head.headBytes, size_t(18));
    QCOMPARE(head.contentLength, int64_t(-1));
    head =
        scan("POST / HTTP/1.1\r\ncontent-LENGTH:  12 \r\nTransfer-Encoding: gzip, chunked\r\n\r\n");
    QCOMPARE(head.state, RequestHead::Complete);
    QCOMPARE(head.contentLength, int64_t(12));
    QVERIFY(head.chunked);
    QVERIFY(!head.expectsContinue);
    QVERIFY(scan("POST / HTTP/1.1\r\nExpect: 100-Continue\r\n\r\n").expectsContinue);
    // Bare line feeds do not end a head for the parser behind, so they do not here either.
    QCOMPARE(scan("GET / HTTP/1.1\n\n").state, RequestHead::Incomplete);
    // Too many lines, or too many bytes without an end, are refused as soon as seen.
    QCOMPARE(scan("GET / HTTP/1.1\r\n" + QByteArray("A: b\r\n").repeated(10)).state,
             RequestHead::TooLarge);
    QCOMPARE(scan("GET / HTTP/1.1\r\nA: " + QByteArray(2000, 'x')).state, RequestHead::TooLarge);
    // A body whose end cannot be known for sure.
    for (const QByteArray& lengths :
         {QByteArray("Content-Length: 1\r\nContent-Length: 2"), QByteArray("Content-Length: -1"),
          QByteArray("Content-Length: +5"), QByteArray("Content-Length: 5x")}) {
        QCOMPARE(scan("POST / HTTP/1.1\r\n" + lengths + "\r\n\r\n").state, RequestHead::Malformed);
    }
}

void ServerPartsTest::gzipPiecesSentApartInflateToTheWhole() {
    QByteArray text;
    for (int i = 0; i < 20000; ++i) text += "colleague " + QByteArray::number(i) + ",";
    const GzipPieces::Piece a = GzipPieces::compress(text.left(100000), false);
    const GzipPieces::Piece b = GzipPieces::compress(text.mid(100000), true);
    const QVector<const GzipPieces::Piece*> pieces{&a, &b};
    const QByteArray sent =
        GzipPieces::header() + a.deflated + b.deflated + GzipPieces::trailer(pieces);
    QCOMPARE(sent, GzipPieces::join(pieces));
    // Inflating checks the trailer's checksum and length as well.
    z_stream zs{};
    QCOMPARE(inflateInit2(&zs, 16 + 15), Z_OK);
    QByteArray out(text.size() + 16, '\0');
    zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(sent.constData()));
    zs.avail_in = uInt(sent.size());
    zs.next_out = reinterpret_cast<Bytef*>(out.data());
    zs.avail_out = uInt(out.size());
    QCOMPARE(inflate(&zs, Z_FINISH), Z_STREAM_END);
    out.resize(int(zs.total_out));
    inflateEnd(&zs);
    QCOMPARE(out, text);
}

// A cluster's nodes as the back end is told them and hands them on: read in order, each
// with its own port or the default one, and every bad entry refused with its reason.
void ServerPartsTest::endpointLists() {
    EndpointList list =
        EndpointList::parse(" a.example , b.example:5300,[::1]:5400,[fe80::1]", 5222);
    QCOMPARE(list.size(), 4);
    QCOMPARE(list.toString(), QString("a.example:5222,b.example:5300,[::1]:5400,[fe80::1]:5222"));
    QCOMPARE(EndpointList::parse(list.toString(), 1).toString(), list.toString());
    // A round through the list: the next node at once, the first again after the last.
    QCOMPARE(list.current().host, QString("a.example"));
    QVERIFY(!list.advance() && !list.advance() && !list.advance());
    QCOMPARE(list.current().host, QString("fe80::1"));
    QVERIFY(list.advance());
    QCOMPARE(list.current().port, 5222);

    for (const char* bad :
         {"", "a,,b", "a:0", "a:65536", "a:x", "::1", "[::1", "[::1]x", ":5222", "a b"}) {
        QString why;
        QVERIFY2(EndpointList::parse(QString::fromLatin1(bad), 5222, &why).isEmpty(), bad);
        QVERIFY2(!why.isEmpty(), bad);
    }
}

QTEST_GUILESS_MAIN(ServerPartsTest)
#include "tst_serverparts.moc"
