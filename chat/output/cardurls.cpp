#include "cardurls.h"

#include <QUrl>
#include <QUrlQuery>

#include "configstore.h"

namespace qx_output {

namespace {
QString page(const QString& path, const QList<QPair<QString, QString>>& query) {
    QUrl url = QUrl(ConfigStore::instance().url(UrlTable::UrlHome)).resolved(QUrl(path));
    QUrlQuery q;
    q.setQueryItems(query);
    url.setQuery(q);
    return url.toString(QUrl::FullyEncoded);
}
}  // namespace

QString CardUrls::task(const QString& taskId) {
    return page(QStringLiteral("/work/task.htm"), {{QStringLiteral("taskId"), taskId}});
}

QString CardUrls::createTask(const QString& projectId) {
    return page(QStringLiteral("/work/task.htm"), {{QStringLiteral("m"), QStringLiteral("create")},
                                                   {QStringLiteral("projectId"), projectId}});
}

QString CardUrls::goals(const QString& projectId) {
    return page(QStringLiteral("/work/goals.htm"), {{QStringLiteral("projectId"), projectId}});
}

}  // namespace qx_output
