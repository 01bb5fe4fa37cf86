#pragma once

#include "projectroom.h"

#include <QDomElement>
#include <QHash>
#include <QObject>
#include <QString>

class XmppAdminSession;

// One pass that brings one project's room in step with what the directory says: for a
// live project the room exists with the project's title and settings, its owner as owner
// and its members as members, and nobody else affiliated (a member taken off a
// members-only room is put out of it and cannot come back); a dissolved project's room is
// destroyed. Each step asks the room first and changes only what differs, so a pass can
// be repeated any number of times. Deletes itself after reporting.
class RoomSync : public QObject {
    Q_OBJECT

public:
    RoomSync(XmppAdminSession* session, const ProjectRoom& plan, const QString& mucDomain,
             const QString& userDomain, QObject* parent = nullptr);
    void run();

signals:
    void finished(qint64 projectId, bool succeeded, const QString& error);

private:
    void checkExists();
    void create();
    void configure(bool always);
    void readAffiliations(int index);
    void applyAffiliations();
    void destroy();
    void done(const QString& error);
    // True (and the pass ended) when a step answered with an error.
    bool failed(const QString& step, const QString& error);

    XmppAdminSession* session_;
    ProjectRoom plan_;
    QString room_;
    QString userDomain_;
    QString occupant_;                 // set while the back end is inside the room it created
    QHash<QString, QString> current_;  // bare JID -> affiliation, as the room lists them
    int outstanding_ = 0;
    QString firstError_;
};
