#include "pagerenderer.h"

#include <QHash>

namespace {

QString esc(const QJsonValue& v) { return v.toString().toHtmlEscaped(); }

const char kStyle[] =
    "body{font-family:'Noto Sans CJK SC','Microsoft YaHei',sans-serif;margin:16px;color:#333}"
    "h1{font-size:18px}h2{font-size:15px}table{border-collapse:collapse}td,th{border:1px solid #ddd;padding:4px 8px}"
    ".muted{color:#888}.state{background:#98D798;color:#fff;border-radius:3px;padding:0 4px}";

}  // namespace

QByteArray PageRenderer::page(const QString& title, const QString& body) {
    return QStringLiteral(
               "<!DOCTYPE html><html lang=\"zh-CN\"><head><meta charset=\"utf-8\">"
               "<title>%1</title><style>%2</style></head><body><h1>%1</h1>%3</body></html>")
        .arg(title.toHtmlEscaped(), QString::fromLatin1(kStyle), body)
        .toUtf8();
}

QByteArray PageRenderer::home(const QString& companyName) {
    return page(companyName.isEmpty() ? QStringLiteral("工作台") : companyName,
                QStringLiteral("<p>欢迎使用 Quelix 工作台。</p>"));
}

QByteArray PageRenderer::checkIn() {
    return page(QStringLiteral("登录"), QStringLiteral("<p>请使用 Quelix 桌面客户端登录。</p>"));
}

QByteArray PageRenderer::findPassword() {
    return page(
        QStringLiteral("找回密码"),
        QStringLiteral("<p>请联系公司管理员重置密码。</p>"
                       "<form method=\"get\"><label>用户名 <input name=\"username\"></label>"
                       " <button type=\"submit\">提交</button></form>"));
}

QByteArray PageRenderer::invitation() {
    return page(QStringLiteral("注册账号"),
                QStringLiteral("<p>新同事的账号由公司管理员创建；请向管理员索取邀请。</p>"));
}

QByteArray PageRenderer::userSettings(const QJsonObject& user) {
    if (user.isEmpty())
        return page(QStringLiteral("个人设置"), QStringLiteral("<p>请先登录。</p>"));
    return page(
        QStringLiteral("个人设置"),
        QStringLiteral("<table><tr><th>姓名</th><td>%1</td></tr><tr><th>用户名</th><td>%2</td>"
                       "</tr><tr><th>部门</th><td>%3</td></tr><tr><th>邮箱</th><td>%4</td>"
                       "</tr></table>")
            .arg(esc(user[QStringLiteral("nick")]), esc(user[QStringLiteral("username")]),
                 esc(user[QStringLiteral("deptName")]), esc(user[QStringLiteral("email")])));
}

QByteArray PageRenderer::projectTasks(const QJsonObject& project, const QJsonArray& tasks) {
    QString rows;
    for (const QJsonValue& v : tasks) {
        const QJsonObject t = v.toObject();
        const QString deadline = t[QStringLiteral("deadline")].toString();
        rows += QStringLiteral(
                    "<tr><td><a href=\"task.htm?m=view&amp;taskId=%1\">%2</a></td>"
                    "<td>%3</td><td>%4</td><td>%5</td></tr>")
                    .arg(esc(t[QStringLiteral("taskId")]), esc(t[QStringLiteral("title")]),
                         esc(t[QStringLiteral("executor")]),
                         deadline.isEmpty() ? QStringLiteral("无期限") : deadline.toHtmlEscaped(),
                         esc(t[QStringLiteral("statusText")]));
    }
    return page(project[QStringLiteral("title")].toString(),
                QStringLiteral("<p><a href=\"task.htm?m=create&amp;projectId=%1\">新建任务</a>"
                               " <a href=\"goals.htm?projectId=%1\">目标</a></p>"
                               "<table><tr><th>任务</th><th>执行人：</th><th>截止日期：</th>"
                               "<th>状态</th></tr>%2</table>")
                    .arg(esc(project[QStringLiteral("id")]), rows));
}

QByteArray PageRenderer::goals(const QJsonObject& project, const QJsonArray& tasks,
                               const QJsonArray& members) {
    QHash<QString, QPair<int, int>> perExecutor;  // assigned, completed
    int done = 0;
    int total = 0;
    for (const QJsonValue& v : tasks) {
        const QJsonObject t = v.toObject();
        // A cancelled task is nobody's goal any more.
        if (t[QStringLiteral("status")].toString() == QLatin1String("4")) continue;
        ++total;
        auto& counts = perExecutor[t[QStringLiteral("executorId")].toString()];
        ++counts.first;
        if (t[QStringLiteral("status")].toString() == QLatin1String("3")) {
            ++counts.second;
            ++done;
        }
    }
    QString rows;
    for (const QJsonValue& v : members) {
        const QJsonObject m = v.toObject();
        const auto counts = perExecutor.value(m[QStringLiteral("id")].toString());
        if (counts.first == 0) continue;
        rows += QStringLiteral("<tr><td>%1</td><td>%2</td><td>%3</td><td>%4%</td></tr>")
                    .arg(esc(m[QStringLiteral("realName")]))
                    .arg(counts.first)
                    .arg(counts.second)
                    .arg(100 * counts.second / counts.first);
    }
    return page(project[QStringLiteral("title")].toString() + QStringLiteral(" 目标"),
                QStringLiteral("<p>目标总数：%1　目标达成率：%2%</p><table><tr><th>成员</th>"
                               "<th>目标</th><th>已完成</th><th>达成率</th></tr>%3</table>")
                    .arg(total)
                    .arg(total == 0 ? 0 : 100 * done / total)
                    .arg(rows));
}
