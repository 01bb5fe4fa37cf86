#pragma once

#include "baseitem.h"

namespace qx_output {

// A goals-table card: total, rate of achievement and what was exceeded, with a link that
// opens the table. Its content keys: "projectId", "title", "total", "rate", "exceed".
class TableMsgItem : public BaseItem {
    Q_OBJECT
public:
    TableMsgItem(const MessageEntry& entry, QWidget* parent = nullptr);

public slots:
    void openLink();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    QString projectId_;
    QWidget* card_;
};

}  // namespace qx_output
