#pragma once

#include "baseitem.h"

class QLabel;

namespace qx_output {

// A task card: what happened to the task, its title, deadline, executor and read state.
// Its content keys: "taskId", "title", "event" (what happened), "endTime", "executor",
// "isRead", "projectId".
class TaskMsgItem : public BaseItem {
    Q_OBJECT
public:
    TaskMsgItem(const MessageEntry& entry, QWidget* parent = nullptr);
    // The status line of a task event: a number from 0 to 7 or one of the lines itself.
    static QString eventText(const QJsonValue& event);

public slots:
    void createSidebarSlot();
    void showSidebarSlot();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void setRead(bool read);

    QString taskId_;
    QLabel* readLabel_;
    QString projectId_;
    QWidget* card_;
};

}  // namespace qx_output
