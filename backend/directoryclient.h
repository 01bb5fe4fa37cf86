#pragma once

#include <QObject>
#include <QSet>
#include <QStringList>

class DirectoryStore;
class Requester;

// Fetches the organisation and single colleagues from the back end into the directory
// store, on the GUI thread.
class DirectoryClient : public QObject {
    Q_OBJECT
public:
    DirectoryClient(Requester* requester, DirectoryStore* store, QObject* parent = nullptr);

    // The whole organisation, after renewing the authorisation when it is stale.
    void loadOrganisation(quint64 userId, quint64 companyId);
    // Colleagues the directory does not know (a message from a new colleague, say).
    // Ids already being fetched are not asked for twice.
    void fetchColleagues(const QStringList& ids);

signals:
    void organisationLoaded(bool ok, const QString& error);
    void colleaguesFetched(const QStringList& ids);
    void colleaguesFailed(const QStringList& ids, const QString& error);

private:
    Requester* requester_;
    DirectoryStore* store_;
    QSet<QString> fetching_;
};
