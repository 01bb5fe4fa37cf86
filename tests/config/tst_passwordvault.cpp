#include <QtTest>

#include <QTemporaryDir>

#include "passwordvault.h"

class TestPasswordVault : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { qunsetenv("DBUS_SESSION_BUS_ADDRESS"); }  // no secret service here
    void sealsAndOpens();
    void onlyTheSameKeyOpensAnUntouchedBox();
};

void TestPasswordVault::sealsAndOpens() {
    QTemporaryDir tmp;
    PasswordVault vault(tmp.path() + "/Config");
    const QString password = QStringLiteral("pa55 wörd+中文%41");
    const QString sealed = vault.protect(password);
    QVERIFY(PasswordVault::isProtected(sealed));
    QVERIFY(!sealed.contains("pa55"));
    QVERIFY(sealed != vault.protect(password));  // a fresh nonce every time
    QCOMPARE(vault.keySource(), QStringLiteral("file"));
    QCOMPARE(vault.unprotect(sealed), password);
    QVERIFY(vault.protect(QString()).isEmpty());

    // The key file is the user's alone.
    const QFile::Permissions perms = QFile(tmp.path() + "/Config/.vault.key").permissions();
    QVERIFY(perms & QFile::ReadOwner);
    QVERIFY(
        !(perms & (QFile::ReadGroup | QFile::ReadOther | QFile::WriteGroup | QFile::WriteOther)));

    // An entry written before passwords were sealed is read as it is.
    QCOMPARE(vault.unprotect(QStringLiteral("old-plain")), QStringLiteral("old-plain"));
}

void TestPasswordVault::onlyTheSameKeyOpensAnUntouchedBox() {
    QTemporaryDir tmp;
    const QString sealed = PasswordVault(tmp.path() + "/a").protect(QStringLiteral("secret"));
    QCOMPARE(PasswordVault(tmp.path() + "/a").unprotect(sealed),
             QStringLiteral("secret"));                                     // after a restart
    QVERIFY(PasswordVault(tmp.path() + "/b").unprotect(sealed).isEmpty());  // another key

    QByteArray box = QByteArray::fromBase64(sealed.mid(5).toLatin1());
    box[box.size() / 2] = char(box[box.size() / 2] ^ 0x01);
    const QString tampered = QStringLiteral("qxv1:") + QString::fromLatin1(box.toBase64());
    QVERIFY(PasswordVault(tmp.path() + "/a").unprotect(tampered).isEmpty());
    QVERIFY(PasswordVault(tmp.path() + "/a").unprotect(QStringLiteral("qxv1:AAAA")).isEmpty());
}

QTEST_GUILESS_MAIN(TestPasswordVault)
#include "tst_passwordvault.moc"
