#pragma once

#include <QString>
#include <QStringList>

// Addresses with their queries, built the way the back end reads them.
class BackendUrls {
public:
    // The whole organisation: "userId" before "companyId", both decimal.
    static QString organisation(const QString& orgUrl, quint64 userId, quint64 companyId);
    // One or several colleagues by id.
    static QString colleagues(const QString& usersUrl, const QStringList& userIds);
    // Project editing. Deleting carries the signature token; removing a member does not.
    // Both keep the "?&" the back end has always been sent.
    static QString deleteProject(const QString& delTribeUrl, quint64 projectId,
                                 const QString& sign);
    static QString removeMember(const QString& delTribeUrl, const QString& userId,
                                quint64 projectId);
    // A project's task page: the project list's address asked for "tasks" instead.
    static QString projectTasks(const QString& groupListUrl, const QString& projectId);
    // Appends query pairs to an address that may already have a query.
    static QString withQuery(const QString& url, const QString& pairs);
};
