#include "ejabberdapiprovisioner.h"

#include <httplib.h>
#include <openssl/x509.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace {

// One connection to the API, kept alive from request to request. Small requests go out at
// once: with Nagle's algorithm each one would wait for the server's delayed acknowledgement
// of the one before (40 ms a request).
class ApiConnection {
public:
    explicit ApiConnection(const EjabberdApiProvisioner::Settings& settings) {
        const QUrl& api = settings.api;
        const std::string origin = api.toString(QUrl::RemovePath | QUrl::RemoveQuery |
                                                QUrl::RemoveFragment | QUrl::RemoveUserInfo)
                                       .toStdString();
        client_ = std::make_unique<httplib::Client>(origin);
        QString path = api.path();
        while (path.endsWith(QLatin1Char('/'))) path.chop(1);
        path_ = path.toStdString();
        client_->set_keep_alive(true);
        client_->set_tcp_nodelay(true);
        const time_t seconds = std::max(1, settings.timeoutMs / 1000);
        client_->set_connection_timeout(seconds, 0);
        client_->set_read_timeout(seconds, 0);
        client_->set_write_timeout(seconds, 0);
        client_->set_basic_auth(settings.adminJid.toStdString(),
                                settings.adminSecret.toStdString());
        if (api.scheme() == QLatin1String("https")) {
            client_->enable_server_certificate_verification(true);
            // The system's authorities, and the company's own beside them.
            X509_STORE* store = X509_STORE_new();
            X509_STORE_set_default_paths(store);
            if (!settings.caFile.isEmpty())
                X509_STORE_load_locations(store, settings.caFile.toLocal8Bit().constData(),
                                          nullptr);
            client_->set_ca_cert_store(store);
        }
    }

    // The answer's status (0 when there was none, `body` then says why).
    int post(const QString& command, const QJsonObject& body, QByteArray* answer) {
        const httplib::Result result = client_->Post(
            (path_ + '/' + command.toStdString()).c_str(),
            QJsonDocument(body).toJson(QJsonDocument::Compact).toStdString(), "application/json");
        if (!result) {
            *answer = QByteArray::fromStdString(httplib::to_string(result.error()));
            return 0;
        }
        *answer = QByteArray::fromStdString(result->body);
        return result->status;
    }

private:
    std::unique_ptr<httplib::Client> client_;
    std::string path_;
};

QString problem(const QString& what, int status, const QByteArray& answer) {
    return status ? QStringLiteral("ejabberd API %1: HTTP %2 %3")
                        .arg(what)
                        .arg(status)
                        .arg(QString::fromUtf8(answer.trimmed().left(300)))
                  : QStringLiteral("ejabberd API %1: %2").arg(what, QString::fromUtf8(answer));
}

}  // namespace

EjabberdApiProvisioner::EjabberdApiProvisioner(const Settings& settings) : settings_(settings) {}

bool EjabberdApiProvisioner::provision(const QVector<Account>& accounts, QString* error) {
    auto fail = [error](const QString& why) {
        if (error) *error = why;
        return false;
    };
    const QUrl& api = settings_.api;
    if (!api.isValid() ||
        (api.scheme() != QLatin1String("http") && api.scheme() != QLatin1String("https")))
        return fail(QStringLiteral("the ejabberd API's address must be http(s)://host:port/path"));
    if (settings_.adminJid.isEmpty() || settings_.adminSecret.isEmpty())
        return fail(QStringLiteral("the ejabberd API needs the administrator's JID and secret"));

    const QString& domain = settings_.domain;
    const QString& group = settings_.rosterGroup;
    QSet<QString> members;
    if (!group.isEmpty()) {
        ApiConnection api(settings_);
        QByteArray answer;
        int status =
            api.post(QStringLiteral("srg_list"), {{QStringLiteral("host"), domain}}, &answer);
        if (status != 200) return fail(problem(QStringLiteral("srg_list"), status, answer));
        if (!QJsonDocument::fromJson(answer).array().contains(group)) {
            status = api.post(QStringLiteral("srg_create"),
                              {{QStringLiteral("group"), group},
                               {QStringLiteral("host"), domain},
                               {QStringLiteral("label"), group},
                               {QStringLiteral("description"), QString()},
                               {QStringLiteral("display"), group}},
                              &answer);
            if (status != 200) return fail(problem(QStringLiteral("srg_create"), status, answer));
        }
        status =
            api.post(QStringLiteral("srg_get_members"),
                     {{QStringLiteral("group"), group}, {QStringLiteral("host"), domain}}, &answer);
        if (status != 200) return fail(problem(QStringLiteral("srg_get_members"), status, answer));
        for (const QJsonValue& jid : QJsonDocument::fromJson(answer).array())
            members.insert(jid.toString().toLower());
    }

    // Each worker provisions the next account not yet taken, on a connection of its own.
    std::atomic<int> next{0};
    std::mutex failureLock;
    QString failure;
    auto failed = [&] {
        std::lock_guard<std::mutex> lock(failureLock);
        return !failure.isEmpty();
    };
    auto work = [&] {
        ApiConnection api(settings_);
        QByteArray answer;
        auto step = [&](const QString& command, const QJsonObject& body, const Account& a,
                        bool existsIsFine) {
            const int status = api.post(command, body, &answer);
            if (status == 200 || (existsIsFine && status == 409)) return status;
            std::lock_guard<std::mutex> lock(failureLock);
            if (failure.isEmpty())
                failure = problem(QStringLiteral("%1 for %2").arg(command, a.user), status, answer);
            return 0;
        };
        for (int i = next++; i < accounts.size() && !failed(); i = next++) {
            const Account& a = accounts[i];
            // Node parts are ids here; an empty name or secret is nobody's account.
            if (a.user.isEmpty() || a.secret.isEmpty()) continue;
            const QJsonObject who{{QStringLiteral("user"), a.user},
                                  {QStringLiteral("host"), domain}};
            QJsonObject registration = who;
            registration.insert(QStringLiteral("password"), a.secret);
            const int made = step(QStringLiteral("register"), registration, a, true);
            if (made == 0) return;
            if (made == 409) {  // it exists: give it the directory's secret
                QJsonObject reset = who;
                reset.insert(QStringLiteral("newpass"), a.secret);
                if (!step(QStringLiteral("change_password"), reset, a, false)) return;
            }
            if (group.isEmpty() ||
                members.contains(a.user.toLower() + QLatin1Char('@') + domain.toLower()))
                continue;
            QJsonObject join = who;
            join.insert(QStringLiteral("group"), group);
            join.insert(QStringLiteral("grouphost"), domain);
            if (!step(QStringLiteral("srg_user_add"), join, a, false)) return;
        }
    };
    std::vector<std::thread> workers;
    const int count = std::max(1, std::min(settings_.parallel, int(accounts.size())));
    for (int w = 0; w < count; ++w) workers.emplace_back(work);
    for (std::thread& t : workers) t.join();
    if (!failure.isEmpty()) return fail(failure);
    return true;
}
