#pragma once

#include <QString>
#include <QVector>

// A member of a tribe as its member list shows it.
struct TribeMember {
    QString id;
    QString name;
};
using TribeMembers = QVector<TribeMember>;
