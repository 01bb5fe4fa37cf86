#include "pagehandler.h"

#include "apihelpers.h"
#include "directory.h"
#include "pagerenderer.h"
#include "requestaccess.h"
#include "taskeditor.h"

#include <httplib.h>

using api::fail;
using api::kHtml;
using api::param;
using api::parseId;
using api::reply;

PageHandler::PageHandler(Directory* directory, const RequestAccess* access, TaskEditor* tasks)
    : directory_(directory), access_(access), tasks_(tasks) {}

void PageHandler::task(const httplib::Request& req, httplib::Response& res) {
    const qint64 caller = access_->signedIn(req, res);
    if (caller == 0) return;
    tasks_->handle(req, res, caller, RequestAccess::sessionIdOf(req));
}

void PageHandler::projectTasks(const httplib::Request& req, httplib::Response& res) {
    const qint64 caller = access_->signedIn(req, res);
    if (caller == 0) return;
    qint64 projectId = 0;
    if (!parseId(param(req, "projectId"), &projectId))
        return fail(res, req, ReplyEnvelope::BadParameter);
    const QJsonObject project = directory_->project(projectId);
    if (project.isEmpty()) return fail(res, req, ReplyEnvelope::NotFound);
    if (!access_->sameCompany(req, res, caller, directory_->projectCompany(projectId))) return;
    reply(res, PageRenderer::projectTasks(project, directory_->tasksOf(projectId)), kHtml);
}

void PageHandler::goals(const httplib::Request& req, httplib::Response& res) {
    const qint64 caller = access_->signedIn(req, res);
    if (caller == 0) return;
    qint64 projectId = 0;
    if (!parseId(param(req, "projectId"), &projectId))
        return fail(res, req, ReplyEnvelope::BadParameter);
    const QJsonObject project = directory_->project(projectId);
    if (project.isEmpty()) return fail(res, req, ReplyEnvelope::NotFound);
    if (!access_->sameCompany(req, res, caller, directory_->projectCompany(projectId))) return;
    reply(res,
          PageRenderer::goals(project, directory_->tasksOf(projectId),
                              directory_->projectMembers(projectId)),
          kHtml);
}
