#include <QtTest>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include "configstore.h"

namespace {
QJsonObject readJson(const QString& path) {
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) return QJsonObject();
    return QJsonDocument::fromJson(f.readAll()).object();
}

void writeFile(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}
}  // namespace

class TestConfigStore : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void folderAndFileTable();
    void initLaysOutTreeAndFiles();
    void globalSettingsKeepTheirAsymmetry();
    void perUserFilesAndDefaults();
    void talkListNumbers();
    void shieldAndLoginLists();
    void garbledFilesKeepDefaultsAndAreKeptAside();
    void keyValueFilesAndHostSwitch();

private:
    QString base() const { return tmp_->path() + QStringLiteral("/Quelix"); }
    QScopedPointer<QTemporaryDir> tmp_;
};

void TestConfigStore::init() { tmp_.reset(new QTemporaryDir); }
void TestConfigStore::cleanup() { tmp_.reset(); }

void TestConfigStore::folderAndFileTable() {
    ConfigStore s(base());
    QCOMPARE(s.folderPath(0), base());
    QCOMPARE(s.folderPath(1), base() + "/User Data");
    QCOMPARE(s.folderPath(2), base() + "/User Data/All Users");
    QCOMPARE(s.folderPath(13), base() + "/Resource/Image/Emoji");
    QCOMPARE(s.folderPath(18), base() + "/Dump");
    QCOMPARE(s.folderPath(20), base() + "/Update");
    QVERIFY(s.folderPath(21).isEmpty());
    QVERIFY(s.folderPath(-1).isEmpty());
    // No user yet: no per-user paths at all, so nothing is written for nobody.
    QVERIFY(s.folderPath(3).isEmpty());
    QVERIFY(s.filePath(9).isEmpty());

    s.setUser(18446744073709551615ULL, 42);
    QCOMPARE(s.folderPath(3), base() + "/User Data/18446744073709551615_42");
    QCOMPARE(s.folderPath(4), base() + "/User Data/18446744073709551615_42/Receive");
    QCOMPARE(s.filePath(11), base() + "/User Data/18446744073709551615_42/Settings.ini");
    QCOMPARE(s.filePath(8), base() + "/Config/Settings.ini");
    QCOMPARE(s.filePath(10), base() + "/User Data/18446744073709551615_42/ShieldList.db");
    QCOMPARE(s.filePath(2), base() + "/Update/QX_update.ini");
    QCOMPARE(s.filePath(19), QStringLiteral(":/resource/Chat/tribeIcon_avatar.png"));
    QVERIFY(s.filePath(20).isEmpty());
}

void TestConfigStore::initLaysOutTreeAndFiles() {
    ConfigStore s(base());
    s.init();
    QCOMPARE(QCoreApplication::applicationVersion(), QStringLiteral("1.1.9.0"));
    for (int folder : {8, 1, 2, 12, 14, 15, 10, 20}) QVERIFY(QDir(s.folderPath(folder)).exists());
    QVERIFY(!QDir(s.folderPath(11)).exists());  // not part of the first-start tree

    const QJsonObject urls = readJson(s.filePath(7));
    QCOMPARE(urls.keys().size(), 15);
    QCOMPARE(urls.value("UrlMD5").toString(),
             QStringLiteral("http://quelix.work/rest/auth/client.htm"));
    QCOMPARE(urls.value("UrlHome").toString(), QStringLiteral("http://quelix.work"));
    QVERIFY(QFile::exists(s.filePath(8)));  // written with defaults at first start

    // A configured user-data folder moves the per-user tree.
    s.settings().setUserDir(tmp_->path() + "/elsewhere");
    QVERIFY(s.settings().save());
    ConfigStore moved(base());
    moved.init();
    QVERIFY(QDir(tmp_->path() + "/elsewhere/All Users").exists());
    moved.setUser(1, 2);
    QCOMPARE(moved.folderPath(5), tmp_->path() + "/elsewhere/1_2/Config");
    QVERIFY(QDir(moved.folderPath(5)).exists());
}

void TestConfigStore::globalSettingsKeepTheirAsymmetry() {
    ConfigStore s(base());
    s.init();
    quelix::settings_t& g = s.settings();
    g.setCloseQuit(true);
    g.setMsgTime(3);
    g.setCheckStateMs(9000);
    g.setNetConnectMs(12500);
    QVERIFY(g.save());
    const QJsonObject o = readJson(s.filePath(8));
    QCOMPARE(o.value("CloseQuit").toString(), QStringLiteral("true"));
    QCOMPARE(o.value("LastTime").toInt(), 3);
    QCOMPARE(o.value("NetConnect").toInt(), 12);  // whole seconds

    quelix::settings_t back;
    back.setPath(s.filePath(8));
    QVERIFY(back.load());
    QVERIFY(back.closeQuit());
    QCOMPARE(back.msgTime(), 16);  // always 16 after a round trip
    QCOMPARE(back.checkStateMs(), 9000);
    QCOMPARE(back.netConnectMs(), 12000);

    // Booleans are the strings "true"/"false"; a JSON true is not "true".
    writeFile(s.filePath(8), "{\"CloseQuit\": true}");
    QVERIFY(back.load());
    QVERIFY(!back.closeQuit());
    QCOMPARE(back.checkStateMs(), 5000);
    QCOMPARE(back.netConnectMs(), 7000);
}

void TestConfigStore::perUserFilesAndDefaults() {
    ConfigStore s(base());
    s.init();
    s.setUser(1001, 77);
    for (int folder : {3, 4, 5, 6, 7}) QVERIFY(QDir(s.folderPath(folder)).exists());
    const QJsonObject o = readJson(s.filePath(11));
    const QStringList on = {"Sound",   "Popup",    "TrayShining",    "Reply",
                            "Suspend", "Complete", "CreateAndDelete"};
    for (const QString& key : on) QCOMPARE(o.value(key).toString(), QStringLiteral("true"));
    QCOMPARE(o.value("ShotHide").toString(), QStringLiteral("false"));
    QCOMPARE(o.value("Dispose").toString(), QStringLiteral("false"));
    QCOMPARE(o.value("ThisTime").toInt(-1), 0);

    s.userConfig().sound = false;
    s.userConfig().thisTime = 9007199254740993LL;  // beyond a double's exact integers
    s.talkList().add({1, 2002, 0, 3, 0, 0, QStringLiteral("hi")});
    QVERIFY(s.userConfig().save());
    QVERIFY(s.talkList().save());

    // A second user starts from defaults, not from what the first one had in memory.
    s.setUser(1002, 77);
    QVERIFY(s.userConfig().sound);
    QVERIFY(s.talkList().entries.isEmpty());

    s.setUser(1001, 77);
    QVERIFY(!s.userConfig().sound);
    QCOMPARE(s.userConfig().thisTime, 9007199254740993LL);
    QCOMPARE(s.talkList().entries.size(), 1);
}

void TestConfigStore::talkListNumbers() {
    ConfigStore s(base());
    s.init();
    s.setUser(5, 6);
    quelix::listtalk_t& talk = s.talkList();
    quelix::listtalk_t::Entry e;
    e.key = 1;
    e.id = 18446744073709551557ULL;  // above 2^63: written as a negative signed number
    e.role = 2;
    e.companyId = 9007199254740993ULL;
    e.lastTime = 4294967296LL + 7;  // above 2^32
    e.time = 1700000000123ULL;
    e.text = QStringLiteral("第一行\n第二行");
    QVERIFY(talk.add(e));
    QVERIFY(!talk.add(e));  // once per conversation
    quelix::listtalk_t::Entry other;
    other.id = 3;
    talk.add(other);
    QVERIFY(talk.save());

    quelix::listtalk_t back;
    back.setPath(s.filePath(9));
    QVERIFY(back.load());
    QCOMPARE(back.entries.size(), 2);
    const auto& r = back.entries.first();
    QCOMPARE(r.id, e.id);
    QCOMPARE(r.companyId, e.companyId);
    QCOMPARE(r.time, e.time);
    QCOMPARE(r.text, e.text);
    QCOMPARE(r.lastTime, qint64(7));  // read back through its low 32 bits
    QCOMPARE(back.entries.at(1).id, quint64(3));

    QVERIFY(back.remove(e.id));
    QVERIFY(!back.remove(e.id));
    QCOMPARE(back.entries.size(), 1);
}

void TestConfigStore::shieldAndLoginLists() {
    ConfigStore s(base());
    s.init();
    s.setUser(5, 6);
    quelix::listshield_t& shield = s.shieldList();
    QVERIFY(shield.setShielded({77, 1, 9, 100}, true));
    QVERIFY(!shield.setShielded({77, 1, 9, 200}, true));
    QVERIFY(shield.setShielded({78, 2, 9, 100}, true));
    QVERIFY(shield.save());
    const QJsonObject o = readJson(s.filePath(10));
    QVERIFY(o.contains("SheildList"));  // the key keeps its historic spelling
    QCOMPARE(o.value("SheildList").toArray().size(), 2);
    quelix::listshield_t back;
    back.setPath(s.filePath(10));
    QVERIFY(back.load());
    QCOMPARE(back.entries, shield.entries);
    QVERIFY(back.setShielded({77, 0, 0, 0}, false));
    QVERIFY(!back.isShielded(77));
    QVERIFY(back.isShielded(78));

    quelix::listlogin_t& logins = s.loginList();
    logins.autoLogin = QStringLiteral("wang");
    logins.logins = {{"wang", "p1"}, {"li", "p2"}, {"zhao", ""}};
    QVERIFY(logins.save());
    ConfigStore again(base());
    again.init();
    QCOMPARE(again.loginList().autoLogin, QStringLiteral("wang"));
    QCOMPARE(again.loginList().logins, logins.logins);
}

void TestConfigStore::garbledFilesKeepDefaultsAndAreKeptAside() {
    ConfigStore first(base());
    first.init();
    const QByteArray garbled = "{\"AutoLogin\": \"wang\", \"LoginList\": [ {\"username\": ";
    writeFile(first.filePath(6), garbled);
    writeFile(first.filePath(8), "not json at all");
    writeFile(first.filePath(7), "{\"UrlLogin\": ");

    ConfigStore s(base());
    s.init();
    QVERIFY(s.loginList().autoLogin.isEmpty());
    QVERIFY(s.loginList().logins.isEmpty());
    QCOMPARE(s.settings().checkStateMs(), 5000);
    QCOMPARE(s.url(UrlTable::UrlLogin), UrlTable::defaultUrl(UrlTable::UrlLogin));
    // The damaged file is kept beside the new one for the user or support to recover.
    QFile kept(s.filePath(6) + ".bad");
    QVERIFY(kept.open(QIODevice::ReadOnly));
    QCOMPARE(kept.readAll(), garbled);
    // Settings and the URL table were rewritten whole at start-up.
    QCOMPARE(readJson(s.filePath(8)).value("NetConnect").toInt(), 7);
    QCOMPARE(readJson(s.filePath(7)).size(), 15);

    s.loginList().logins = {{"li", "x"}};
    QVERIFY(s.loginList().save());
    ConfigStore again(base());
    again.init();
    QCOMPARE(again.loginList().logins.size(), 1);
}

void TestConfigStore::keyValueFilesAndHostSwitch() {
    ConfigStore s(base());
    s.init();
    QVERIFY(s.writeValue(ConfigStore::RoleDetail, "role", "admin"));
    QCOMPARE(s.readValue(ConfigStore::RoleDetail, "role"), QStringLiteral("admin"));
    QVERIFY(s.writeValue(ConfigStore::RoleDetail, "other", "1"));
    // Writing one key replaces the file's content.
    QCOMPARE(s.readValue(ConfigStore::RoleDetail, "role", "none"), QStringLiteral("none"));
    QCOMPARE(s.readValue(ConfigStore::HtmlListFile, "HtmlText", "dflt"), QStringLiteral("dflt"));
    QVERIFY(!s.writeValue(ConfigStore::TribeIcon, "k", "v"));     // a built-in resource
    QVERIFY(!s.writeValue(ConfigStore::TalkListFile, "k", "v"));  // no user yet

    s.setUrl(UrlTable::UrlOrg, QStringLiteral("http://127.0.0.1:8080/org"));
    s.switchHost(true);
    const QJsonObject test = readJson(s.filePath(7));
    QCOMPARE(test.value("UrlLogin").toString(),
             QStringLiteral("http://beta.qx.net/work/checkIn.htm?m=MobileLogin"));
    QCOMPARE(test.value("UrlOrg").toString(), QStringLiteral("http://127.0.0.1:8080/org"));
    s.switchHost(false);
    QCOMPARE(s.url(UrlTable::UrlLogin), UrlTable::defaultUrl(UrlTable::UrlLogin));

    writeFile(s.filePath(13), "{\"HtmlText\": \"<p>%1</p>\", \"HtmlHint\": 5}");
    ConfigStore again(base());
    again.init();
    QCOMPARE(again.htmlValue("HtmlText"), QStringLiteral("<p>%1</p>"));
    QVERIFY(again.htmlValue("HtmlHint").isEmpty());
    QCOMPARE(again.url(UrlTable::UrlOrg), QStringLiteral("http://127.0.0.1:8080/org"));
}

QTEST_GUILESS_MAIN(TestConfigStore)
#include "tst_configstore.moc"
