#include "taskpages.h"

#include "pagerenderer.h"

namespace {

QString esc(const QJsonValue& v) { return v.toString().toHtmlEscaped(); }

QString hiddenFields(const QString& verb, const QString& idName, const QString& id,
                     const QString& token) {
    return QStringLiteral(
               "<input type=\"hidden\" name=\"m\" value=\"%1\">"
               "<input type=\"hidden\" name=\"%2\" value=\"%3\">"
               "<input type=\"hidden\" name=\"formToken\" value=\"%4\">")
        .arg(verb, idName, id.toHtmlEscaped(), token.toHtmlEscaped());
}

QString memberOptions(const QJsonArray& members, const QString& selected) {
    QString options;
    for (const QJsonValue& v : members) {
        const QJsonObject m = v.toObject();
        const QString id = m[QStringLiteral("id")].toString();
        options +=
            QStringLiteral("<option value=\"%1\"%2>%3</option>")
                .arg(id.toHtmlEscaped(), id == selected ? QStringLiteral(" selected") : QString(),
                     esc(m[QStringLiteral("realName")]));
    }
    return options;
}

const char* const kStates[] = {"待处理", "处理中", "暂停中", "已完成"};

}  // namespace

QByteArray TaskPages::task(const QJsonObject& t, bool read, const QJsonArray& replies,
                           const QJsonArray& members, const Viewer& viewer) {
    const QString id = t[QStringLiteral("taskId")].toString();
    const QString deadline = t[QStringLiteral("deadline")].toString();
    QString body =
        QStringLiteral(
            "<p class=\"muted\">%1</p><table>"
            "<tr><th>截止日期：</th><td>%2</td></tr>"
            "<tr><th>执行人：</th><td id=\"executor\">%3</td></tr>"
            "<tr><th>状态</th><td><span class=\"state\" id=\"state\">%4</span></td></tr>"
            "<tr><th>任务说明</th><td>%5</td></tr></table><p class=\"muted\">%6</p>")
            .arg(esc(t[QStringLiteral("projectTitle")]),
                 deadline.isEmpty() ? QStringLiteral("无期限") : deadline.toHtmlEscaped(),
                 esc(t[QStringLiteral("executor")]), esc(t[QStringLiteral("statusText")]),
                 esc(t[QStringLiteral("description")]),
                 read ? QStringLiteral("已读") : QStringLiteral("未读"));

    body += QStringLiteral("<h2>回复</h2><ul id=\"replies\">");
    for (const QJsonValue& v : replies) {
        const QJsonObject r = v.toObject();
        body += QStringLiteral("<li><b>%1</b> <span class=\"muted\">%2</span><br>%3</li>")
                    .arg(esc(r[QStringLiteral("userName")]), esc(r[QStringLiteral("dateCreated")]),
                         esc(r[QStringLiteral("text")]));
    }
    body += QStringLiteral("</ul>");

    const bool cancelled = t[QStringLiteral("status")].toString() == QLatin1String("4");
    if (viewer.canChange && !cancelled) {
        const QString status = t[QStringLiteral("status")].toString();
        QString states;
        for (int i = 0; i < 4; ++i) {
            states +=
                QStringLiteral("<option value=\"%1\"%2>%3</option>")
                    .arg(i)
                    .arg(status == QString::number(i) ? QStringLiteral(" selected") : QString())
                    .arg(QString::fromUtf8(kStates[i]));
        }
        const QString executorId = t[QStringLiteral("executorId")].toString();
        body += QStringLiteral(
                    "<form method=\"post\" action=\"task.htm\" id=\"replyForm\">%1"
                    "<p><textarea name=\"text\" maxlength=\"2000\"></textarea></p>"
                    "<button type=\"submit\">回复</button></form>"
                    "<form method=\"post\" action=\"task.htm\" id=\"stateForm\">%2"
                    "<select name=\"status\">%3</select> <button type=\"submit\">修改状态</button>"
                    "</form>"
                    "<form method=\"post\" action=\"task.htm\" id=\"assignForm\">%4"
                    "<select name=\"executorId\">%5</select> <button type=\"submit\">指派</button>"
                    "</form>"
                    "<form method=\"post\" action=\"task.htm\" id=\"cancelForm\">%6"
                    "<button type=\"submit\">取消任务</button></form>")
                    .arg(hiddenFields(QStringLiteral("reply"), QStringLiteral("taskId"), id,
                                      viewer.formToken),
                         hiddenFields(QStringLiteral("state"), QStringLiteral("taskId"), id,
                                      viewer.formToken),
                         states,
                         hiddenFields(QStringLiteral("assign"), QStringLiteral("taskId"), id,
                                      viewer.formToken),
                         memberOptions(members, executorId),
                         hiddenFields(QStringLiteral("cancel"), QStringLiteral("taskId"), id,
                                      viewer.formToken));
    }
    body += QStringLiteral("<p><a href=\"project.htm?m=tasks&amp;projectId=%1\">项目任务</a></p>")
                .arg(esc(t[QStringLiteral("projectId")]));
    return PageRenderer::page(t[QStringLiteral("title")].toString(), body);
}

QByteArray TaskPages::creation(const QJsonObject& project, const QJsonArray& members,
                               const Viewer& viewer) {
    const QString projectId = project[QStringLiteral("id")].toString();
    if (!viewer.canChange) {
        return PageRenderer::page(QStringLiteral("新建任务"),
                                  QStringLiteral("<p class=\"muted\">%1</p>"
                                                 "<p>只有项目成员可以新建任务。</p>")
                                      .arg(esc(project[QStringLiteral("title")])));
    }
    return PageRenderer::page(
        QStringLiteral("新建任务"),
        QStringLiteral("<p class=\"muted\">%1</p><form method=\"post\" action=\"task.htm\""
                       " id=\"createForm\">%2"
                       "<p><label>任务标题 <input name=\"title\" maxlength=\"100\" required>"
                       "</label></p>"
                       "<p><label>执行人： <select name=\"executorId\">%3</select></label></p>"
                       "<p><label>截止日期： <input name=\"deadline\" type=\"date\"></label></p>"
                       "<p><label>任务说明 <textarea name=\"description\" maxlength=\"2000\">"
                       "</textarea></label></p><button type=\"submit\">创建</button></form>")
            .arg(esc(project[QStringLiteral("title")]),
                 hiddenFields(QStringLiteral("create"), QStringLiteral("projectId"), projectId,
                              viewer.formToken),
                 memberOptions(members, QString())));
}

QByteArray TaskPages::home(const QString& companyName, const QJsonArray& projects,
                           const QJsonArray& myTasks) {
    QString body = QStringLiteral("<h2>我的任务</h2>");
    if (myTasks.isEmpty()) body += QStringLiteral("<p class=\"muted\">没有待办的任务。</p>");
    body += QStringLiteral("<ul id=\"myTasks\">");
    for (const QJsonValue& v : myTasks) {
        const QJsonObject t = v.toObject();
        const QString deadline = t[QStringLiteral("deadline")].toString();
        body += QStringLiteral(
                    "<li><a href=\"work/task.htm?m=view&amp;taskId=%1\">%2</a>"
                    " <span class=\"muted\">%3 · %4 · %5</span></li>")
                    .arg(esc(t[QStringLiteral("taskId")]), esc(t[QStringLiteral("title")]),
                         esc(t[QStringLiteral("projectTitle")]),
                         deadline.isEmpty() ? QStringLiteral("无期限") : deadline.toHtmlEscaped(),
                         esc(t[QStringLiteral("statusText")]));
    }
    body += QStringLiteral("</ul><h2>我的项目</h2><ul id=\"projects\">");
    for (const QJsonValue& v : projects) {
        const QJsonObject p = v.toObject();
        body += QStringLiteral(
                    "<li>%2 <a href=\"work/project.htm?m=tasks&amp;projectId=%1\">任务</a>"
                    " <a href=\"work/goals.htm?projectId=%1\">目标</a>"
                    " <a href=\"work/task.htm?m=create&amp;projectId=%1\">新建任务</a></li>")
                    .arg(esc(p[QStringLiteral("id")]), esc(p[QStringLiteral("title")]));
    }
    body += QStringLiteral("</ul>");
    return PageRenderer::page(companyName.isEmpty() ? QStringLiteral("工作台") : companyName, body);
}
