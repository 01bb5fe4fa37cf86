#pragma once

#include <QList>
#include <QString>

// What a project's group chat room should look like, as the directory says at one moment.
struct ProjectRoom {
    qint64 id = 0;
    bool exists = false;     // the project is in the directory: the room must exist
    bool dissolved = false;  // the project was dissolved: its room must be gone
    QString title;
    qint64 owner = 0;
    QList<qint64> members;  // the owner included
};
