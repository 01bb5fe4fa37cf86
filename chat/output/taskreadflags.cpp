#include "taskreadflags.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QVariant>

namespace qx_output {

TaskReadFlags::TaskReadFlags(QObject* parent) : QObject(parent) {
    // Cards drawn together (a page of history) ask in one request.
    batch_.setSingleShot(true);
    batch_.setInterval(0);
    connect(&batch_, &QTimer::timeout, this, &TaskReadFlags::sendBatch);
}

int TaskReadFlags::flag(const QString& taskId) {
    auto it = flags_.constFind(taskId);
    if (it != flags_.constEnd()) return it.value() ? 1 : 0;
    if (taskId.isEmpty() || !fetch_ || asked_.contains(taskId)) return -1;
    asked_.insert(taskId);
    waiting_ << taskId;
    batch_.start();
    return -1;
}

void TaskReadFlags::sendBatch() {
    while (!waiting_.isEmpty()) {
        const QStringList ids = waiting_.mid(0, kBatch);
        waiting_ = waiting_.mid(ids.size());
        fetch_(ids);
    }
}

void TaskReadFlags::setFlags(const QHash<QString, bool>& flags) {
    for (auto it = flags.constBegin(); it != flags.constEnd(); ++it) {
        if (!it.value() && readHere_.contains(it.key())) continue;
        const bool was = flags_.value(it.key(), !it.value());
        flags_.insert(it.key(), it.value());
        if (was != it.value() || !asked_.contains(it.key())) emit changed(it.key(), it.value());
        asked_.insert(it.key());
    }
}

void TaskReadFlags::markRead(const QString& taskId) {
    if (taskId.isEmpty()) return;
    const bool was = flags_.value(taskId, false);
    flags_.insert(taskId, true);
    asked_.insert(taskId);
    readHere_.insert(taskId);
    if (!was) emit changed(taskId, true);
}

void TaskReadFlags::forget(const QString& taskId) {
    flags_.remove(taskId);
    asked_.remove(taskId);
    readHere_.remove(taskId);
}

QHash<QString, bool> TaskReadFlags::parse(const QJsonValue& results) {
    QHash<QString, bool> out;
    for (const QJsonValue& v : results.toArray()) {
        const QJsonObject o = v.toObject();
        const QString id = o.value(QStringLiteral("taskId")).toVariant().toString();
        const QString flag = o.value(QStringLiteral("readFlag")).toVariant().toString();
        if (id.isEmpty() || (flag != QLatin1String("0") && flag != QLatin1String("1"))) continue;
        out.insert(id, flag == QLatin1String("1"));
    }
    return out;
}

}  // namespace qx_output
