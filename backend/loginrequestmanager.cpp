#include "loginrequestmanager.h"

#include "companytrust.h"
#include "configstore.h"
#include "directoryclient.h"
#include "directorystore.h"
#include "envelope.h"
#include "logger.h"
#include "logstream.h"
#include "requester.h"

LoginRequestManager::LoginRequestManager(Requester* requester, DirectoryStore* store,
                                         QObject* parent)
    : QObject(parent),
      requester_(requester),
      store_(store),
      directory_(new DirectoryClient(requester, store, this)) {
    connect(directory_, &DirectoryClient::organisationLoaded, this,
            [this](bool ok, const QString& error) {
                if (!busy_) return;
                if (!ok) return fail(BadReply, error);
                ConfigStore::instance().setUser(user_.id.toULongLong(),
                                                user_.companyId.toULongLong());
                busy_ = false;
                QX_LOG << "LoginRequestManager: signed in to the back end as " << user_.id;
                emit loggedIn(user_);
                emit httpBack(Success, QString());
            });
}

QString LoginRequestManager::textFor(Result result, const QString& serverText) {
    switch (result) {
        case Success:
            return QString();
        case NetworkFailed:
            return QStringLiteral("请求登录失败");
        case Refused:
            if (!serverText.isEmpty()) return serverText;
            break;
        case BadReply:
            break;
        case Insecure:
            return QStringLiteral(
                "登录地址未加密（http），为保护密码已停止登录，请改用 https 地址");
    }
    return QStringLiteral("数据获取失败");
}

void LoginRequestManager::fail(Result result, const QString& serverText) {
    busy_ = false;
    emit httpBack(result, textFor(result, serverText));
}

void LoginRequestManager::onLoginRequest(const QString& userName, const QString& password,
                                         bool isCheckBeta) {
    busy_ = true;
    ConfigStore& config = ConfigStore::instance();
    requester_->setLoginUrl(config.url(UrlTable::UrlLogin));
    const QUrl loginUrl(config.url(UrlTable::UrlLogin));
    if (!CompanyTrust::mayCarrySecrets(loginUrl)) {
        QX_LOG << "LoginRequestManager: not signing in: " << loginUrl.host()
               << " is reached over plain HTTP and is not this machine";
        return fail(Insecure);
    }
    const bool sent = requester_->post(
        config.url(UrlTable::UrlLogin), Requester::loginForm(userName, password),
        [this, userName, password, isCheckBeta](const QByteArray& body) {
            const Envelope e = Envelope::parse(body);
            if (!e.isValid()) return fail(BadReply);
            // An account the back end keeps on the beta service signs in there, and stays
            // there for the next start.
            if (e.redirectToBeta() && !isCheckBeta) {
                ConfigStore& config = ConfigStore::instance();
                config.switchHost(true);
                config.writeValue(ConfigStore::ExistFile, QStringLiteral("LoginBeta"),
                                  QStringLiteral("true"));
                return onLoginRequest(userName, password, true);
            }
            if (!e.isSuccess()) return fail(Refused, e.errorMsg());
            LoginUser user;
            const QJsonValue results = e.results();
            if (!LoginUser::fromJson(
                    results.toObject().contains(QStringLiteral("user"))
                        ? results.toObject().value(QStringLiteral("user")).toObject()
                        : results.toObject(),
                    &user))
                return fail(BadReply);
            user_ = user;
            requester_->setCredentials(userName, password);
            requester_->setSession(
                results.toObject().value(QStringLiteral("sessionId")).toString());
            requester_->setAuthorised(QDateTime::currentDateTime(), user.md5Sign);
            fetchToken();
        },
        [this](const QString&) { fail(NetworkFailed); });
    if (!sent) fail(NetworkFailed);
}

void LoginRequestManager::fetchToken() {
    const bool sent = requester_->get(
        ConfigStore::instance().url(UrlTable::UrlMD5),
        [this](const QByteArray& body) {
            const Envelope e = Envelope::parse(body);
            const QString sign = e.member(QStringLiteral("md5Sign")).toString();
            if (!e.isSuccess() || sign.isEmpty()) return fail(BadReply, e.errorMsg());
            user_.md5Sign = sign;
            requester_->setAuthorised(requester_->lastAuthorised(), sign);
            fetchOrganisation();
        },
        [this](const QString&) { fail(BadReply); });
    if (!sent) fail(BadReply);
}

void LoginRequestManager::fetchOrganisation() {
    store_->setSelfId(user_.id);
    store_->setCompanyId(user_.companyId);
    directory_->loadOrganisation(user_.id.toULongLong(), user_.companyId.toULongLong());
}
