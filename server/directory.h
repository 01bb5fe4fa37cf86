#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

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
    bool deleteProject(qint64 projectId);
    bool removeMember(qint64 projectId, qint64 userId);

    QJsonObject task(qint64 taskId) const;  // empty when unknown
    QJsonArray tasksOf(qint64 projectId) const;
    bool markTaskRead(qint64 taskId, qint64 userId);
    QJsonArray readFlags(qint64 userId, const QList<qint64>& taskIds) const;

    qint64 addAttachment(qint64 ownerId, const QString& fileName, const QString& storedName,
                         qint64 size);
    bool attachment(qint64 id, QString* fileName, QString* storedName, qint64* size) const;

    static QString taskStatusText(int status);

private:
    Database* db_;
    QString publicUrl_;
};
