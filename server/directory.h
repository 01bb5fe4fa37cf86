#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include "projectroom.h"

class Database;

// The company directory as the wire sees it: every read returns records with the keys the
// client reads, every id as decimal text.
class Directory {
public:
    Directory(Database* db, const QString& publicUrl);

    QString avatarUrl(qint64 userId) const;

    bool findAccount(const QString& userName, qint64* userId, QString* passwordHash) const;
    // The log-in user object; empty when the user is unknown.
    QJsonObject loginUser(qint64 userId) const;
    qint64 companyOf(qint64 userId) const;  // 0 when the user is unknown
    bool companyExists(qint64 companyId) const;

    QJsonArray colleagues(const QList<qint64>& ids) const;

    QJsonArray projectsOf(qint64 userId) const;
    QJsonObject project(qint64 projectId) const;  // empty when unknown
    qint64 projectOwner(qint64 projectId) const;  // 0 when unknown
    bool isMember(qint64 projectId, qint64 userId) const;
    QJsonArray projectMembers(qint64 projectId) const;
    // Dissolving keeps the id as a dissolved room (so the id is never handed out again and
    // the room keeper knows to destroy the room).
    bool deleteProject(qint64 projectId);
    bool removeMember(qint64 projectId, qint64 userId);
    // A new project of `owner` with the given members (the owner is always one); 0 on failure.
    qint64 createProject(qint64 owner, const QString& title, const QList<qint64>& members);
    bool addMembers(qint64 projectId, const QList<qint64>& userIds);
    int projectsOwnedBy(qint64 userId) const;
    int memberCount(qint64 projectId) const;
    // The company of a project, dissolved ones included; 0 when unknown.
    qint64 projectCompany(qint64 projectId) const;
    // How many of `userIds` belong to `companyId`.
    int countInCompany(qint64 companyId, const QList<qint64>& userIds) const;

    // The room side of projects: what a project's room should be, every id whose room needs
    // checking (live projects, dissolved rooms not yet destroyed, projects with notices
    // not yet sent), and marking a
    // dissolved room as destroyed.
    ProjectRoom projectRoom(qint64 projectId) const;
    QList<qint64> roomIds() const;
    bool roomDestroyed(qint64 projectId);

    QJsonObject task(qint64 taskId) const;  // empty when unknown
    QJsonArray tasksOf(qint64 projectId) const;
    bool markTaskRead(qint64 taskId, qint64 userId);
    QJsonArray readFlags(qint64 userId, const QList<qint64>& taskIds) const;

    qint64 addAttachment(qint64 ownerId, const QString& fileName, const QString& storedName,
                         qint64 size);
    bool attachment(qint64 id, QString* fileName, QString* storedName, qint64* size,
                    qint64* ownerId = nullptr) const;
    // The company of a task's project, 0 when the task is unknown.
    qint64 taskCompany(qint64 taskId) const;
    // Those of `userIds` that belong to `companyId`, in the given order.
    QList<qint64> inCompany(qint64 companyId, const QList<qint64>& userIds) const;

    // The company's task assistant ("任务助手"), made on first use (`made` tells); 0 on
    // failure. It is a colleague the client knows like any other (so a one-to-one message
    // in its name is shown), but nobody signs in as it and it cannot join projects.
    qint64 taskAssistant(qint64 companyId, bool* made = nullptr);
    // The account's secret for the IM service (empty when unknown).
    QString imSecret(qint64 userId) const;

    static QString taskStatusText(int status);

private:
    Database* db_;
    QString publicUrl_;
};
