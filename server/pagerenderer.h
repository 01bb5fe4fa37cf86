#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>

// The work site's web pages that the client opens: in the sidebar (a project's task list, a
// goals table; the task pages are TaskPages') or in the system browser (find password, invitation,
// settings). Every text from the directory is HTML-escaped.
class PageRenderer {
public:
    static QByteArray page(const QString& title, const QString& body);

    static QByteArray home(const QString& companyName);
    static QByteArray checkIn();
    static QByteArray findPassword();
    static QByteArray invitation();
    static QByteArray userSettings(const QJsonObject& user);
    static QByteArray projectTasks(const QJsonObject& project, const QJsonArray& tasks);
    // Goals per member: tasks assigned and completed, with the completion rate.
    static QByteArray goals(const QJsonObject& project, const QJsonArray& tasks,
                            const QJsonArray& members);
};
