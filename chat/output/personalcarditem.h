#pragma once

#include <QJsonObject>

#include "baseitem.h"

class QPushButton;

namespace qx_output {

// A colleague's card shared into a conversation: their name and department; a click
// opens the colleague's card. Its content keys: "userId", "name", "deptName".
class PersonalCardItem : public BaseItem {
    Q_OBJECT
public:
    PersonalCardItem(const MessageEntry& entry, QWidget* parent = nullptr);

    // The message a share sends: its content JSON (compact) and its summary line, which is
    // what clients that do not draw cards show.
    static QString contentFor(const QString& userId);
    static QString summaryFor(const QString& userId);
    const QString& sharedUserId() const { return userId_; }
    QPushButton* openButton() const { return open_; }

signals:
    void openCardSignal(const QString& userId);

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    QString userId_;
    QWidget* card_;
    QPushButton* open_;
};

}  // namespace qx_output
