#include "backendurls.h"

#include <QUrl>
#include <QUrlQuery>

QString BackendUrls::withQuery(const QString& url, const QString& pairs) {
    return url + (url.contains(QLatin1Char('?')) ? QLatin1Char('&') : QLatin1Char('?')) + pairs;
}

QString BackendUrls::organisation(const QString& orgUrl, quint64 userId, quint64 companyId) {
    return withQuery(orgUrl, QStringLiteral("userId=%1&companyId=%2").arg(userId).arg(companyId));
}

QString BackendUrls::colleagues(const QString& usersUrl, const QStringList& userIds) {
    return withQuery(
        usersUrl, QStringLiteral("manyUserIds=") +
                      QString::fromLatin1(QUrl::toPercentEncoding(userIds.join(QLatin1Char(',')))));
}

QString BackendUrls::deleteProject(const QString& delTribeUrl, quint64 projectId,
                                   const QString& sign) {
    return delTribeUrl + QStringLiteral("?&projectId=") + QString::number(projectId) +
           QStringLiteral("&sign=") + sign + QStringLiteral("&m=delProj");
}

QString BackendUrls::removeMember(const QString& delTribeUrl, const QString& userId,
                                  quint64 projectId) {
    return delTribeUrl + QStringLiteral("?&kickUserId=") + userId + QStringLiteral("&projectId=") +
           QString::number(projectId) + QStringLiteral("&m=exitPro");
}

QString BackendUrls::projectTasks(const QString& groupListUrl, const QString& projectId) {
    QUrl url(groupListUrl);
    if (!url.isValid() || groupListUrl.isEmpty()) return QString();
    QUrlQuery query;
    query.addQueryItem(QStringLiteral("m"), QStringLiteral("tasks"));
    query.addQueryItem(QStringLiteral("projectId"), projectId);
    url.setQuery(query);
    return url.toString();
}
