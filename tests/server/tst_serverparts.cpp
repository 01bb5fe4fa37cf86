// The back end's building blocks where a fault would not show through HTTP quickly:
// password hashes, attachment names and generated companies.
#include "database.h"
#include "democompany.h"
#include "filestore.h"
#include "passwordhasher.h"
#include "prosodystoreprovisioner.h"

#include <QSqlQuery>
#include <QTemporaryDir>
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
    QTest::newRow("plain") << "报告.docx"
                           << "报告.docx";
    QTest::newRow("unix path") << "../../etc/passwd"
                               << "passwd";
    QTest::newRow("windows path") << "C:\\Users\\me\\a.txt"
                                  << "a.txt";
    QTest::newRow("dots only") << ".."
                               << "";
    QTest::newRow("hidden") << ".bashrc"
                            << "bashrc";
    QTest::newRow("trailing dots") << "a.txt. . "
                                   << "a.txt";
    QTest::newRow("reserved and control") << QStringLiteral("a<b>|c\x01\n.txt") << "abc.txt";
    // Device names stay usable on Windows, whatever the case or extension.
    for (const char* device : {"CON", "NUL.txt", "COM1", "aux.tar.gz", "LPT1.log", "prn"}) {
        QTest::newRow(device) << QString::fromLatin1(device)
                              << QLatin1Char('_') + QString::fromLatin1(device);
    }
    QTest::newRow("device-like") << "CONSOLE.txt"
                                 << "CONSOLE.txt";
    QTest::newRow("device in a path") << "dir/com9.zip"
                                      << "_com9.zip";
    QTest::newRow("empty") << ""
                           << "";
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

QTEST_GUILESS_MAIN(ServerPartsTest)
#include "tst_serverparts.moc"
