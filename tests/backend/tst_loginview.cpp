#include <QNetworkProxy>
#include <QTcpServer>
#include <QtTest>

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>

#include "configstore.h"
#include "directorystore.h"
#include "httpfixture.h"
#include "loginview.h"
#include "passwordvault.h"
#include "resources.h"

namespace {
const QByteArray kUser =
    "{\"errorCode\":0,\"errorMsg\":\"\",\"results\":{\"id\":\"1001\",\"nick\":\"王伟\","
    "\"username\":\"wangwei\","
    "\"companyId\":\"7\",\"companyName\":\"示例公司\",\"imAccount\":\"1001\",\"imSecret\":"
    "\"s3cr3t\","
    "\"imHost\":\"127.0.0.1\",\"imPort\":\"5333\",\"imDomain\":\"quelix.local\"}}";
const QByteArray kToken = "{\"errorCode\":0,\"results\":{\"md5Sign\":\"abc123\"}}";
const QByteArray kOrg =
    "{\"errorCode\":0,\"results\":{\"allDeptList\":[{\"id\":\"1\",\"parentId\":\"0\",\"orgName\":"
    "\"总部\"}],"
    "\"allUserList\":[{\"id\":\"1001\",\"section\":\"1\",\"realName\":\"王伟\",\"md5Sign\":"
    "\"abc123\"}]}}";
}  // namespace

class TestLoginView : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void checksItsFieldsFirst();
    void backEndFailuresShowTheirTexts();
    void signsInAndRemembersTheAccountSealed();
    void rememberedAccountsFillAndGo();
    void betaAccountsSignInThere();

private:
    void signIn(LoginView& view, const QString& user, const QString& password, bool remember,
                bool autoLogin);
    QScopedPointer<HttpFixture> server_;
    QByteArray loginReply_ = kUser;
    bool dropLogin_ = false;
};

void TestLoginView::initTestCase() {
    quelixInitResources();
    qunsetenv("DBUS_SESSION_BUS_ADDRESS");
    server_.reset(new HttpFixture([this](const HttpFixture::Request& r) {
        HttpFixture::Response resp;
        if (r.target.contains("MobileLogin")) {
            resp.body = loginReply_;
            resp.dropConnection = dropLogin_;
        } else if (r.target.startsWith("/rest/auth")) {
            resp.body = kToken;
        } else {
            resp.body = kOrg;
        }
        return resp;
    }));
    ConfigStore& config = ConfigStore::instance();
    config.setUrlRoot(server_->url());
    config.init();
}

void TestLoginView::init() {
    loginReply_ = kUser;
    dropLogin_ = false;
}

void TestLoginView::checksItsFieldsFirst() {
    LoginView view;
    QSignalSpy requests(&view, &LoginView::onLoginRequestSignal);
    view.OnClickedLogin();
    QCOMPARE(view.hint(), QStringLiteral("用户名不能为空"));
    view.findChild<QComboBox*>("m_cboxUserName")->setEditText("wangwei");
    view.OnClickedLogin();
    QCOMPARE(view.hint(), QStringLiteral("密码不能为空"));
    QCOMPARE(requests.size(), 0);
    QVERIFY(!view.isBusy());
}

void TestLoginView::backEndFailuresShowTheirTexts() {
    LoginView view;
    view.findChild<QComboBox*>("m_cboxUserName")->setEditText("wangwei");
    view.findChild<QLineEdit*>("m_editPassword")->setText("pw");

    dropLogin_ = true;
    view.OnClickedLogin();
    QVERIFY(view.isBusy());
    QVERIFY(!view.findChild<QPushButton*>("m_btnLogin")->isEnabled());
    QTRY_COMPARE(view.hint(), QStringLiteral("请求登录失败"));
    QVERIFY(!view.isBusy());

    dropLogin_ = false;
    loginReply_ = "<html>gateway</html>";
    view.OnClickedLogin();
    QTRY_COMPARE(view.hint(), QStringLiteral("数据获取失败"));

    loginReply_ = "{\"errorCode\":1001,\"errorMsg\":\"用户名或密码错误\"}";
    view.OnClickedLogin();
    QTRY_COMPARE(view.hint(), QStringLiteral("用户名或密码错误"));
    QVERIFY(!view.findChild<QPushButton*>("m_btnLogin")->styleSheet().contains("login-btn2"));

    // A back end reached over plain HTTP on another machine never gets the password: the
    // refusal comes at once and says why. Everything the client sends goes to a proxy on
    // loopback meanwhile, so a password that did leave would be caught there, not sent out.
    QTcpServer proxy;
    QVERIFY(proxy.listen(QHostAddress::LocalHost));
    QNetworkProxy::setApplicationProxy(
        QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), proxy.serverPort()));
    ConfigStore& config = ConfigStore::instance();
    const QString loopbackLogin = config.url(UrlTable::UrlLogin);
    config.setUrl(UrlTable::UrlLogin,
                  QStringLiteral("http://quelix.work/work/checkIn.htm?m=MobileLogin"));
    view.OnClickedLogin();
    QTRY_VERIFY(view.hint().contains(QStringLiteral("未加密")));
    QVERIFY(!view.isBusy());
    QTest::qWait(200);
    QVERIFY(!proxy.hasPendingConnections());
    config.setUrl(UrlTable::UrlLogin, loopbackLogin);
    QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
}

void TestLoginView::signIn(LoginView& view, const QString& user, const QString& password,
                           bool remember, bool autoLogin) {
    view.findChild<QComboBox*>("m_cboxUserName")->setEditText(user);
    view.findChild<QLineEdit*>("m_editPassword")->setText(password);
    view.findChild<QCheckBox*>("m_checkAutoLogin")->setChecked(autoLogin);
    view.findChild<QCheckBox*>("m_checkRemember")->setChecked(remember);
    view.OnClickedLogin();
}

void TestLoginView::signsInAndRemembersTheAccountSealed() {
    LoginView view;
    QSignalSpy im(&view, &LoginView::imLoginRequestSignal);
    QSignalSpy done(&view, &LoginView::LoginSeccess);
    signIn(view, "wangwei", "pa ss+1", true, true);
    QVERIFY(view.findChild<QPushButton*>("m_btnLogin")->styleSheet().contains("login-btn2"));
    QTRY_COMPARE(im.size(), 1);
    const LoginUser user = im.first().first().value<LoginUser>();
    QCOMPARE(user.imSecret, QStringLiteral("s3cr3t"));
    QCOMPARE(user.imPort, 5333);
    QCOMPARE(user.md5Sign, QStringLiteral("abc123"));
    QCOMPARE(DirectoryStore::instance().colleague("1001")->realName(), QStringLiteral("王伟"));
    QVERIFY(QDir(ConfigStore::instance().folderPath(ConfigStore::PerUser)).exists());
    QVERIFY(ConfigStore::instance().folderPath(ConfigStore::PerUser).endsWith("/1001_7"));

    // The IM half decides; its codes give different texts and nothing is remembered yet.
    view.OnImLoginResult(LoginView::kImWrongPassword);
    QCOMPARE(view.hint(), QStringLiteral("登录失败，用户或密码错误"));
    QVERIFY(ConfigStore::instance().loginList().logins.isEmpty());
    view.OnClickedLogin();
    QTRY_COMPARE(im.size(), 2);
    view.OnImLoginResult(3);
    QCOMPARE(view.hint(), QStringLiteral("无法连接通讯服务器"));

    view.OnClickedLogin();
    QTRY_COMPARE(im.size(), 3);
    view.OnImLoginResult(0);
    QCOMPARE(done.size(), 1);
    const quelix::listlogin_t& logins = ConfigStore::instance().loginList();
    QCOMPARE(logins.autoLogin, QStringLiteral("wangwei"));
    QCOMPARE(logins.logins.size(), 1);
    QVERIFY(PasswordVault::isProtected(logins.logins.first().password));
    QFile file(ConfigStore::instance().filePath(ConfigStore::LoginListFile));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(!file.readAll().contains("pa ss+1"));  // never on disk as typed
}

void TestLoginView::rememberedAccountsFillAndGo() {
    quelix::listlogin_t& logins = ConfigStore::instance().loginList();
    PasswordVault vault(ConfigStore::instance().folderPath(ConfigStore::Config));
    logins.logins = {{"lina", vault.protect("pw-lina")}, {"zhao", QString()}};
    logins.autoLogin = QStringLiteral("lina");
    QVERIFY(logins.save());

    {
        // Started by the loader with the switch that keeps it from signing in by itself.
        LoginView view;
        QSignalSpy requests(&view, &LoginView::onLoginRequestSignal);
        view.start(false, false);
        QCOMPARE(view.findChild<QComboBox*>("m_cboxUserName")->currentText(),
                 QStringLiteral("lina"));
        QCOMPARE(view.findChild<QLineEdit*>("m_editPassword")->text(), QStringLiteral("pw-lina"));
        QVERIFY(view.findChild<QCheckBox*>("m_checkAutoLogin")->isChecked());
        QCOMPARE(requests.size(), 0);
        view.OnUserNameChanged("zhao");
        QVERIFY(!view.findChild<QCheckBox*>("m_checkRemember")->isChecked());

        view.setConfirm([](const QString& title, const QString& text) {
            return title == QStringLiteral("提示！") &&
                   text == QStringLiteral("是否确定删除该账户？\n ");
        });
        view.removeAccount("lina");
        QCOMPARE(logins.logins.size(), 1);
        QVERIFY(logins.autoLogin.isEmpty());
        view.setConfirm([](const QString&, const QString&) { return false; });
        view.removeAccount("zhao");
        QCOMPARE(logins.logins.size(), 1);
    }
    logins.logins = {{"lina", vault.protect("pw-lina")}};
    logins.autoLogin = QStringLiteral("lina");
    {
        LoginView view;
        QSignalSpy requests(&view, &LoginView::onLoginRequestSignal);
        view.start(true, true);  // taken over: no automatic sign-in
        QCOMPARE(view.hint(), QStringLiteral("您的账号在别处登录，请重新登录。"));
        QCOMPARE(requests.size(), 0);
    }
    LoginView view;
    QSignalSpy requests(&view, &LoginView::onLoginRequestSignal);
    view.start(true, false);
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.first().at(1).toString(), QStringLiteral("pw-lina"));
}

void TestLoginView::betaAccountsSignInThere() {
    // The back end says the account lives on the beta service: the client moves its
    // addresses there, remembers it, and signs in again there, once.
    ConfigStore& config = ConfigStore::instance();
    config.setUrl(UrlTable::UrlUpload,
                  QStringLiteral("http://quelix.work/work/mobileTopic.htm?m=uploadFromPC"));
    loginReply_ = "{\"errorCode\":0,\"redirectToBeta\":true,\"results\":{}}";
    const int before = server_->requests().size();
    LoginView view;
    QSignalSpy requests(&view, &LoginView::onLoginRequestSignal);
    signIn(view, "beta-user", "pw", false, false);
    QTRY_VERIFY(!view.isBusy());
    int logins = 0;
    for (int i = before; i < server_->requests().size(); ++i)
        if (server_->requests().at(i).target.contains("MobileLogin")) ++logins;
    QCOMPARE(logins, 2);  // there, and not a third time
    QCOMPARE(config.url(UrlTable::UrlUpload),
             QStringLiteral("http://beta.qx.net/work/mobileTopic.htm?m=uploadFromPC"));
    QCOMPARE(config.readValue(ConfigStore::ExistFile, "LoginBeta"), QStringLiteral("true"));
    // The next sign-in starts on the beta service and says so.
    view.OnClickedLogin();
    QCOMPARE(requests.last().at(2).toBool(), true);
    QTRY_VERIFY(!view.isBusy());
    config.switchHost(false);
}

QTEST_MAIN(TestLoginView)
#include "tst_loginview.moc"
