#include "taskeditor.h"

#include "apihelpers.h"
#include "directory.h"
#include "roomkeeper.h"
#include "taskpages.h"

#include <httplib.h>

#include <QDate>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMessageAuthenticationCode>
#include <QRandomGenerator>

using api::fail;
using api::kHtml;
using api::param;
using api::parseId;
using api::reply;

namespace {

void refuse(httplib::Response& res, const httplib::Request& req, ReplyEnvelope::Code code,
            const char* why) {
    qInfo("task %s refused (%d): %s", qPrintable(param(req, "m")), int(code), why);
    fail(res, req, code);
}

bool plainText(const QString& text, int maxLength, bool allowNewlines) {
    if (text.size() > maxLength) return false;
    for (const QChar c : text) {
        if (allowNewlines &&
            (c == QLatin1Char('\n') || c == QLatin1Char('\r') || c == QLatin1Char('\t')))
            continue;
        if (c.category() == QChar::Other_Control || c.category() == QChar::Other_Format)
            return false;
    }
    return true;
}

void seeTask(httplib::Response& res, qint64 taskId) {
    // After a change the browser shows the task again (and a reload does not post twice).
    res.status = 303;
    res.set_header("Location", "task.htm?m=view&taskId=" + std::to_string(taskId));
    reply(res, QByteArray(), kHtml);
}

// Cards carry a short reply only: the page has the rest.
constexpr int kCardReplyChars = 200;

}  // namespace

TaskEditor::TaskEditor(Database* db, Directory* directory, RoomKeeper* rooms)
    : directory_(directory), tasks_(db), cards_(db), rooms_(rooms) {
    formKey_.resize(32);
    QRandomGenerator::system()->fillRange(reinterpret_cast<quint32*>(formKey_.data()), 8);
}

QByteArray TaskEditor::formToken(const QByteArray& session) const {
    return QMessageAuthenticationCode::hash(session, formKey_, QCryptographicHash::Sha256)
        .toHex()
        .left(40);
}

QByteArray TaskEditor::home(qint64 caller) const {
    // Enough to find one's work; the project pages list the rest.
    constexpr int kShownTasks = 200;
    QJsonArray mine;
    for (qint64 id : tasks_.openTasksOf(caller, kShownTasks)) mine.append(directory_->task(id));
    return TaskPages::home(
        directory_->loginUser(caller).value(QStringLiteral("companyName")).toString(),
        directory_->projectsOf(caller), mine);
}

QJsonObject TaskEditor::card(const QJsonObject& t, int event, qint64 actor,
                             const QString& actorName, const QString& replyText) {
    QJsonObject o{{QStringLiteral("msgType"), 1},
                  {QStringLiteral("summary"), QStringLiteral("[任务]")},
                  {QStringLiteral("taskId"), t[QStringLiteral("taskId")]},
                  {QStringLiteral("projectId"), t[QStringLiteral("projectId")]},
                  {QStringLiteral("title"), t[QStringLiteral("title")]},
                  {QStringLiteral("event"), event},
                  {QStringLiteral("endTime"), t[QStringLiteral("deadline")]},
                  {QStringLiteral("executor"), t[QStringLiteral("executor")]},
                  {QStringLiteral("executorId"), t[QStringLiteral("executorId")]},
                  {QStringLiteral("userId"), QString::number(actor)},
                  {QStringLiteral("userName"), actorName},
                  {QStringLiteral("isRead"), false}};
    if (!replyText.isEmpty()) o.insert(QStringLiteral("reply"), replyText.left(kCardReplyChars));
    return o;
}

void TaskEditor::handle(const httplib::Request& req, httplib::Response& res, qint64 caller,
                        const QByteArray& session) {
    const QString m = param(req, "m");
    if (req.method != "POST") {
        if (m.isEmpty() || m == QLatin1String("view")) return view(req, res, caller, session);
        if (m == QLatin1String("create")) return creationForm(req, res, caller, session);
        // A link must never change anything.
        return refuse(res, req, ReplyEnvelope::BadParameter, "a change asked for without a post");
    }
    // Deny by default: a post without this session's form token was not made by our page.
    const QByteArray token = param(req, "formToken").toLatin1();
    if (token.isEmpty() || token != formToken(session))
        return refuse(res, req, ReplyEnvelope::Forbidden, "missing or wrong form token");
    if (m == QLatin1String("create")) return create(req, res, caller);
    if (m == QLatin1String("assign") || m == QLatin1String("reply") ||
        m == QLatin1String("state") || m == QLatin1String("cancel"))
        return change(req, res, caller, m);
    refuse(res, req, ReplyEnvelope::BadParameter, "unknown change");
}

void TaskEditor::view(const httplib::Request& req, httplib::Response& res, qint64 caller,
                      const QByteArray& session) {
    qint64 taskId = 0;
    if (!parseId(param(req, "taskId"), &taskId)) return fail(res, req, ReplyEnvelope::BadParameter);
    const QJsonObject task = directory_->task(taskId);
    const qint64 company = directory_->taskCompany(taskId);
    if (task.isEmpty() || company == 0 || company != directory_->companyOf(caller))
        return refuse(res, req, ReplyEnvelope::NotFound, "no such task in the caller's company");
    // Opening the task is reading it, by the signed-in caller only.
    const bool read = directory_->markTaskRead(taskId, caller);
    const qint64 projectId = task[QStringLiteral("projectId")].toString().toLongLong();
    TaskPages::Viewer viewer{QString::fromLatin1(formToken(session)),
                             directory_->isMember(projectId, caller)};
    reply(res,
          TaskPages::task(task, read, tasks_.replies(taskId),
                          viewer.canChange ? directory_->projectMembers(projectId) : QJsonArray(),
                          viewer),
          kHtml);
}

void TaskEditor::creationForm(const httplib::Request& req, httplib::Response& res, qint64 caller,
                              const QByteArray& session) {
    qint64 projectId = 0;
    if (!parseId(param(req, "projectId"), &projectId))
        return fail(res, req, ReplyEnvelope::BadParameter);
    const QJsonObject project = directory_->project(projectId);
    const qint64 company = directory_->projectCompany(projectId);
    if (project.isEmpty() || company == 0 || company != directory_->companyOf(caller))
        return refuse(res, req, ReplyEnvelope::NotFound, "no such project in the caller's company");
    TaskPages::Viewer viewer{QString::fromLatin1(formToken(session)),
                             directory_->isMember(projectId, caller)};
    reply(res,
          TaskPages::creation(
              project, viewer.canChange ? directory_->projectMembers(projectId) : QJsonArray(),
              viewer),
          kHtml);
}

bool TaskEditor::executorValid(qint64 projectId, const QString& text, qint64* executor) const {
    return parseId(text, executor) && directory_->isMember(projectId, *executor);
}

void TaskEditor::create(const httplib::Request& req, httplib::Response& res, qint64 caller) {
    qint64 projectId = 0;
    if (!parseId(param(req, "projectId"), &projectId))
        return fail(res, req, ReplyEnvelope::BadParameter);
    const qint64 company = directory_->projectCompany(projectId);
    if (directory_->project(projectId).isEmpty() || company == 0 ||
        company != directory_->companyOf(caller))
        return refuse(res, req, ReplyEnvelope::NotFound, "no such project in the caller's company");
    if (!directory_->isMember(projectId, caller))
        return refuse(res, req, ReplyEnvelope::Forbidden, "not a member of the project");
    const QString title = param(req, "title").trimmed();
    const QString description = param(req, "description");
    const QString deadline = param(req, "deadline").trimmed();
    if (title.isEmpty() || !plainText(title, TaskStore::kMaxTitleLength, false))
        return refuse(res, req, ReplyEnvelope::BadParameter, "title empty, too long or not plain");
    if (!plainText(description, TaskStore::kMaxDescriptionLength, true))
        return refuse(res, req, ReplyEnvelope::BadParameter, "description too long or not plain");
    if (!deadline.isEmpty() && !QDate::fromString(deadline, Qt::ISODate).isValid())
        return refuse(res, req, ReplyEnvelope::BadParameter, "deadline is not a date");
    // Without an executor the creator does it.
    qint64 executor = caller;
    const QString executorText = param(req, "executorId");
    if (!executorText.isEmpty() && !executorValid(projectId, executorText, &executor))
        return refuse(res, req, ReplyEnvelope::BadParameter, "executor is not a project member");
    const qint64 taskId = tasks_.create(projectId, caller, executor, title, description, deadline);
    if (taskId == 0) return fail(res, req, ReplyEnvelope::InternalError);
    post(taskId, Created, caller);
    seeTask(res, taskId);
}

void TaskEditor::change(const httplib::Request& req, httplib::Response& res, qint64 caller,
                        const QString& verb) {
    qint64 taskId = 0;
    if (!parseId(param(req, "taskId"), &taskId)) return fail(res, req, ReplyEnvelope::BadParameter);
    const QJsonObject task = directory_->task(taskId);
    const qint64 company = directory_->taskCompany(taskId);
    if (task.isEmpty() || company == 0 || company != directory_->companyOf(caller))
        return refuse(res, req, ReplyEnvelope::NotFound, "no such task in the caller's company");
    const qint64 projectId = task[QStringLiteral("projectId")].toString().toLongLong();
    if (!directory_->isMember(projectId, caller))
        return refuse(res, req, ReplyEnvelope::Forbidden, "not a member of the project");
    const int status = task[QStringLiteral("status")].toString().toInt();
    if (status == TaskStore::Cancelled)
        return refuse(res, req, ReplyEnvelope::Forbidden, "the task was cancelled");

    if (verb == QLatin1String("reply")) {
        const QString text = param(req, "text").trimmed();
        if (text.isEmpty() || !plainText(text, TaskStore::kMaxReplyLength, true))
            return refuse(res, req, ReplyEnvelope::BadParameter,
                          "reply empty, too long or not plain");
        if (tasks_.reply(taskId, caller, text) == 0)
            return fail(res, req, ReplyEnvelope::InternalError);
        post(taskId, Replied, caller, text);
    } else if (verb == QLatin1String("assign")) {
        qint64 executor = 0;
        if (!executorValid(projectId, param(req, "executorId"), &executor))
            return refuse(res, req, ReplyEnvelope::BadParameter,
                          "executor is not a project member");
        if (executor != task[QStringLiteral("executorId")].toString().toLongLong()) {
            if (!tasks_.assign(taskId, executor))
                return fail(res, req, ReplyEnvelope::InternalError);
            post(taskId, Assigned, caller);
        }
    } else if (verb == QLatin1String("state")) {
        bool ok = false;
        const int wanted = param(req, "status").toInt(&ok);
        if (!ok || wanted < TaskStore::Waiting || wanted > TaskStore::Done)
            return refuse(res, req, ReplyEnvelope::BadParameter, "unknown state");
        // Choosing the state it already has changes nothing and tells nobody.
        if (wanted != status) {
            if (!tasks_.setStatus(taskId, wanted))
                return fail(res, req, ReplyEnvelope::InternalError);
            post(taskId, StateWaiting + wanted, caller);
        }
    } else {
        if (!tasks_.setStatus(taskId, TaskStore::Cancelled))
            return fail(res, req, ReplyEnvelope::InternalError);
        post(taskId, CancelledEvent, caller);
    }
    seeTask(res, taskId);
}

void TaskEditor::post(qint64 taskId, int event, qint64 actor, const QString& replyText) {
    if (!rooms_) return;  // nobody would post it
    const QJsonObject task = directory_->task(taskId);
    const QJsonArray who = directory_->colleagues({actor});
    const QString name = who.isEmpty()
                             ? QString()
                             : who.first().toObject().value(QStringLiteral("realName")).toString();
    const qint64 projectId = task[QStringLiteral("projectId")].toString().toLongLong();
    if (!cards_.add(projectId, QJsonDocument(card(task, event, actor, name, replyText))
                                   .toJson(QJsonDocument::Compact))) {
        qWarning("task %lld: card of event %d not queued", taskId, event);
        return;
    }
    // A task given to someone else also reaches them directly, so it is not lost among a
    // busy tribe's messages. It comes from the company's task assistant, a colleague the
    // client looks up like any other, so it is shown in a conversation of its own; the
    // back end's own account only carries it. Creating a task for oneself tells nobody.
    const qint64 executor = task[QStringLiteral("executorId")].toString().toLongLong();
    if ((event == Created || event == Assigned) && executor != actor) {
        bool made = false;
        const qint64 assistant =
            directory_->taskAssistant(directory_->projectCompany(projectId), &made);
        if (made && accountMade_) accountMade_(assistant);
        // To the executor it is always "assigned to you", whether made so or changed.
        if (assistant == 0 ||
            !cards_.addDirect(
                projectId, executor, assistant,
                QJsonDocument(card(task, Assigned, actor, name)).toJson(QJsonDocument::Compact)))
            qWarning("task %lld: card for its executor %lld not queued", taskId, executor);
    }
    rooms_->projectChanged(projectId);
}
