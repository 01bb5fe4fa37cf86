#include "directoryclient.h"

#include "backendurls.h"
#include "configstore.h"
#include "directorystore.h"
#include "envelope.h"
#include "requester.h"

DirectoryClient::DirectoryClient(Requester* requester, DirectoryStore* store, QObject* parent)
    : QObject(parent), requester_(requester), store_(store) {}

void DirectoryClient::loadOrganisation(quint64 userId, quint64 companyId) {
    const QString url =
        BackendUrls::organisation(ConfigStore::instance().url(UrlTable::UrlOrg), userId, companyId);
    auto fail = [this](const QString& reason) { emit organisationLoaded(false, reason); };
    requester_->whenAuthorised(
        [this, url, fail] {
            const bool sent = requester_->get(
                url,
                [this](const QByteArray& body) {
                    if (store_->load(body)) {
                        emit organisationLoaded(true, QString());
                        return;
                    }
                    const Envelope e = Envelope::parse(body);
                    emit organisationLoaded(
                        false, e.isValid() ? e.errorMsg() : QStringLiteral("not JSON"));
                },
                fail);
            if (!sent) fail(QStringLiteral("request refused"));
        },
        fail);
}

void DirectoryClient::fetchColleagues(const QStringList& ids) {
    QStringList wanted;
    for (const QString& id : ids)
        if (!id.isEmpty() && !fetching_.contains(id) && !wanted.contains(id)) wanted << id;
    if (wanted.isEmpty()) return;
    for (const QString& id : wanted) fetching_.insert(id);

    auto done = [this, wanted] {
        for (const QString& id : wanted) fetching_.remove(id);
    };
    auto fail = [this, wanted, done](const QString& reason) {
        done();
        emit colleaguesFailed(wanted, reason);
    };
    const QString url =
        BackendUrls::colleagues(ConfigStore::instance().url(UrlTable::UrlUsers), wanted);
    const bool sent = requester_->get(
        url,
        [this, wanted, done, fail](const QByteArray& body) {
            const QStringList added = store_->addColleagues(body);
            if (added.isEmpty()) {
                const Envelope e = Envelope::parse(body);
                fail(e.isSuccess() ? QStringLiteral("unknown colleague") : e.errorMsg());
                return;
            }
            done();
            emit colleaguesFetched(added);
        },
        fail);
    if (!sent) fail(QStringLiteral("request refused"));
}
