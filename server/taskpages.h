#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>

// The task pages of the work site: one task with its replies and the forms that change it,
// and the creation form. Every text from the directory is HTML-escaped; every form carries
// the caller's form token, without which the back end refuses the post.
class TaskPages {
public:
    struct Viewer {
        QString formToken;
        bool canChange = false;  // a member of the task's project
    };

    static QByteArray task(const QJsonObject& task, bool read, const QJsonArray& replies,
                           const QJsonArray& members, const Viewer& viewer);
    // The work platform's home page for a signed-in colleague: its projects, with their task
    // lists and goals, and the tasks it is to do.
    static QByteArray home(const QString& companyName, const QJsonArray& projects,
                           const QJsonArray& myTasks);
    static QByteArray creation(const QJsonObject& project, const QJsonArray& members,
                               const Viewer& viewer);
};
