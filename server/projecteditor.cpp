#include "projecteditor.h"

#include "apihelpers.h"
#include "directory.h"
#include "roomkeeper.h"
#include "sessionstore.h"

#include <httplib.h>

#include <QJsonObject>

using api::fail;
using api::ok;
using api::param;
using api::parseId;
using api::parseIdList;

namespace {

// Refusals of the new addresses leave one line each, so a script that gets an error code
// can see why in the back end's log.
void refuse(httplib::Response& res, const httplib::Request& req, ReplyEnvelope::Code code,
            const char* why, const QString& message = QString()) {
    qInfo("editProj %s refused (%d): %s", qPrintable(param(req, "m")), int(code), why);
    if (message.isEmpty()) return fail(res, req, code);
    fail(res, req, code, message);
}

bool validTitle(const QString& title) {
    if (title.isEmpty() || title.size() > ProjectEditor::kMaxTitleLength) return false;
    for (const QChar c : title) {
        if (c.category() == QChar::Other_Control || c.category() == QChar::Other_Format)
            return false;
    }
    return true;
}

}  // namespace

ProjectEditor::ProjectEditor(Database* db, Directory* directory, SessionStore* sessions,
                             RoomKeeper* rooms)
    : directory_(directory), notices_(db), sessions_(sessions), rooms_(rooms) {}

void ProjectEditor::handle(const httplib::Request& req, httplib::Response& res, qint64 caller) {
    // Every change and every question needs a signed-in caller.
    if (caller == 0) return refuse(res, req, ReplyEnvelope::NotSignedIn, "no session");
    const QString m = param(req, "m");
    if (m == QLatin1String("createProj")) return create(req, res, caller);
    qint64 projectId = 0;
    if (!parseId(param(req, "projectId"), &projectId))
        return fail(res, req, ReplyEnvelope::BadParameter);
    // Another company's projects are as unknown as missing ones.
    const qint64 company = directory_->projectCompany(projectId);
    if (company == 0 || company != directory_->companyOf(caller)) {
        return refuse(res, req, ReplyEnvelope::NotFound, "no such project in the caller's company");
    }
    if (m == QLatin1String("delProj")) return dissolve(req, res, projectId, caller);
    if (m == QLatin1String("exitPro")) return removeMember(req, res, projectId, caller);
    if (m == QLatin1String("addMember")) return addMembers(req, res, projectId, caller);
    if (m == QLatin1String("roomState")) return roomState(req, res, projectId, caller);
    fail(res, req, ReplyEnvelope::BadParameter);
}

void ProjectEditor::changed(qint64 projectId) {
    if (rooms_) rooms_->projectChanged(projectId);
}

QList<qint64> ProjectEditor::memberIds(qint64 projectId) const {
    return directory_->projectRoom(projectId).members;
}

void ProjectEditor::notify(qint64 projectId, const QString& event, const QList<qint64>& users,
                           const QList<qint64>& recipients, const QString& title) {
    if (!rooms_) return;  // nobody would send them
    QList<QPair<qint64, qint64>> pairs;
    for (qint64 user : users) {
        if (recipients.isEmpty()) pairs.append({user, user});
        for (qint64 r : recipients) pairs.append({r, user});
    }
    const QString name =
        title.isEmpty() ? directory_->project(projectId).value(QStringLiteral("title")).toString()
                        : title;
    // The change itself is committed; a notice that cannot be queued is logged, not fatal.
    if (!notices_.add(projectId, name, event, pairs)) {
        qWarning("editProj: %s notices of project %lld not queued", qPrintable(event), projectId);
    }
}

QJsonObject ProjectEditor::record(qint64 projectId, qint64 viewer) const {
    QJsonObject project = directory_->project(projectId);
    // A project's sign is its owner's signature token, shown only to the signed-in owner.
    if (viewer != 0 && directory_->projectOwner(projectId) == viewer) {
        project.insert(QStringLiteral("sign"), QString::fromLatin1(sessions_->tokenOf(viewer)));
    }
    if (rooms_) project.insert(QStringLiteral("roomJid"), rooms_->roomJid(projectId));
    return project;
}

void ProjectEditor::dissolve(const httplib::Request& req, httplib::Response& res, qint64 projectId,
                             qint64 caller) {
    const QByteArray sign = param(req, "sign").toLatin1();
    if (sign.isEmpty()) return fail(res, req, ReplyEnvelope::BadParameter);
    const qint64 owner = directory_->projectOwner(projectId);
    if (owner == 0) return fail(res, req, ReplyEnvelope::NotFound);
    // Only the owner, signed in and with its signature token, dissolves a project.
    if (owner != caller) return refuse(res, req, ReplyEnvelope::Forbidden, "not the owner");
    if (!sessions_->tokenMatches(owner, sign))
        return refuse(res, req, ReplyEnvelope::Forbidden, "wrong sign");
    const QList<qint64> members = memberIds(projectId);
    const QString title = directory_->project(projectId).value(QStringLiteral("title")).toString();
    if (!directory_->deleteProject(projectId)) return fail(res, req, ReplyEnvelope::InternalError);
    notify(projectId, QStringLiteral("dismissed"), {owner}, members, title);
    changed(projectId);
    ok(res, req, QJsonObject{{QStringLiteral("projectId"), QString::number(projectId)}});
}

void ProjectEditor::removeMember(const httplib::Request& req, httplib::Response& res,
                                 qint64 projectId, qint64 caller) {
    // Leaving carries no sign (the client never sends one here); the signed-in caller may
    // only remove itself, or anyone when it owns the project.
    qint64 kick = 0;
    if (!parseId(param(req, "kickUserId"), &kick))
        return fail(res, req, ReplyEnvelope::BadParameter);
    const qint64 owner = directory_->projectOwner(projectId);
    if (owner == 0 || !directory_->isMember(projectId, kick)) {
        return fail(res, req, ReplyEnvelope::NotFound);
    }
    if (kick == owner) {
        return fail(res, req, ReplyEnvelope::Forbidden,
                    QStringLiteral("群主不能退出该群，请解散该群"));
    }
    if (caller != kick && caller != owner)
        return refuse(res, req, ReplyEnvelope::Forbidden, "not the owner");
    if (!directory_->removeMember(projectId, kick)) return fail(res, req, ReplyEnvelope::NotFound);
    // Leaving by oneself and being removed show different tips; the removed colleague is
    // told too.
    notify(projectId, caller == kick ? QStringLiteral("quit") : QStringLiteral("kicked"), {kick},
           memberIds(projectId) << kick);
    changed(projectId);
    ok(res, req,
       QJsonObject{{QStringLiteral("projectId"), QString::number(projectId)},
                   {QStringLiteral("kickUserId"), QString::number(kick)}});
}

void ProjectEditor::create(const httplib::Request& req, httplib::Response& res, qint64 caller) {
    if (caller == 0) return refuse(res, req, ReplyEnvelope::NotSignedIn, "no session");
    const QString title = param(req, "title").trimmed();
    if (!validTitle(title)) return refuse(res, req, ReplyEnvelope::BadParameter, "bad title");
    QList<qint64> members;
    const QString memberText = param(req, "memberIds");
    if (!memberText.isEmpty() && !parseIdList(memberText, &members)) {
        return refuse(res, req, ReplyEnvelope::BadParameter, "bad memberIds");
    }
    members.removeAll(caller);
    if (members.size() + 1 > kMaxMembers) {
        return refuse(res, req, ReplyEnvelope::Forbidden, "too many members",
                      QStringLiteral("项目成员数量已达上限"));
    }
    // Only colleagues of the caller's own company; others are as unknown as missing ids.
    const qint64 company = directory_->companyOf(caller);
    if (directory_->countInCompany(company, members) != members.size()) {
        return refuse(res, req, ReplyEnvelope::NotFound, "member outside the company");
    }
    if (directory_->projectsOwnedBy(caller) >= kMaxOwnedProjects) {
        return refuse(res, req, ReplyEnvelope::Forbidden, "too many projects",
                      QStringLiteral("项目数量已达上限"));
    }
    // A page (or a link in one) could otherwise make a project in a signed-in user's name.
    if (req.method != "POST")
        return refuse(res, req, ReplyEnvelope::BadParameter, "a change asked by GET");
    const qint64 id = directory_->createProject(caller, title, members);
    if (id == 0) return fail(res, req, ReplyEnvelope::InternalError);
    notify(id, QStringLiteral("joined"), memberIds(id), {});
    changed(id);
    ok(res, req, record(id, caller));
}

void ProjectEditor::addMembers(const httplib::Request& req, httplib::Response& res,
                               qint64 projectId, qint64 caller) {
    if (caller == 0) return refuse(res, req, ReplyEnvelope::NotSignedIn, "no session");
    QList<qint64> users;
    if (!parseIdList(param(req, "userIds"), &users)) {
        return refuse(res, req, ReplyEnvelope::BadParameter, "bad userIds");
    }
    const qint64 owner = directory_->projectOwner(projectId);
    if (owner == 0 || directory_->projectCompany(projectId) != directory_->companyOf(caller)) {
        return refuse(res, req, ReplyEnvelope::NotFound, "no such project in the caller's company");
    }
    // Only the owner decides who is in the project.
    if (owner != caller) return refuse(res, req, ReplyEnvelope::Forbidden, "not the owner");
    if (req.method != "POST")
        return refuse(res, req, ReplyEnvelope::BadParameter, "a change asked by GET");
    if (directory_->countInCompany(directory_->companyOf(caller), users) != users.size()) {
        return refuse(res, req, ReplyEnvelope::NotFound, "member outside the company");
    }
    QList<qint64> added;
    for (qint64 u : qAsConst(users)) {
        if (!directory_->isMember(projectId, u)) added << u;
    }
    if (directory_->memberCount(projectId) + added.size() > kMaxMembers) {
        return refuse(res, req, ReplyEnvelope::Forbidden, "too many members",
                      QStringLiteral("项目成员数量已达上限"));
    }
    const QList<qint64> before = memberIds(projectId);
    if (!directory_->addMembers(projectId, added))
        return fail(res, req, ReplyEnvelope::InternalError);
    if (!added.isEmpty()) {
        notify(projectId, QStringLiteral("joined"), added, {});
        if (qint64(added.size()) * before.size() <= kMaxNoticesPerChange) {
            notify(projectId, QStringLiteral("joined"), added, before);
        }
        changed(projectId);
    }
    ok(res, req, record(projectId, caller));
}

void ProjectEditor::roomState(const httplib::Request& req, httplib::Response& res, qint64 projectId,
                              qint64 caller) {
    if (caller == 0) return refuse(res, req, ReplyEnvelope::NotSignedIn, "no session");
    const qint64 company = directory_->projectCompany(projectId);
    if (company == 0 || company != directory_->companyOf(caller)) {
        return refuse(res, req, ReplyEnvelope::NotFound, "no such project in the caller's company");
    }
    QJsonObject state{
        {QStringLiteral("projectId"), QString::number(projectId)},
        {QStringLiteral("dissolved"),
         directory_->projectOwner(projectId) == 0 ? QStringLiteral("1") : QStringLiteral("0")},
    };
    if (!rooms_) {
        state.insert(QStringLiteral("state"), QStringLiteral("unmanaged"));
        return ok(res, req, state);
    }
    QString error;
    const RoomQueue::State s = rooms_->state(projectId, &error);
    state.insert(QStringLiteral("roomJid"), rooms_->roomJid(projectId));
    state.insert(QStringLiteral("state"), s == RoomQueue::State::Ready ? QStringLiteral("ready")
                                          : s == RoomQueue::State::Pending
                                              ? QStringLiteral("pending")
                                              : QStringLiteral("failed"));
    state.insert(QStringLiteral("error"), error);
    state.insert(QStringLiteral("online"),
                 rooms_->isOnline() ? QStringLiteral("1") : QStringLiteral("0"));
    ok(res, req, state);
}
