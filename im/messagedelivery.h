#pragma once

#include <QObject>
#include <QString>
#include <functional>

#include "alertcoalescer.h"
#include "basemsg.h"
#include "openim/im_message.h"
#include "openim/im_tribe_message.h"

// A message on its way to the views: the conversation page (chatMessage), the talk list's
// preview and, for a live message from someone else, the alert it calls for: the row's mark,
// the title, the tray and the sound, gathered per shown slice (AlertCoalescer), left out for
// task cards the user's task settings silence and noted as seen when the page is in front.
class MessageDelivery : public QObject {
    Q_OBJECT
public:
    // `ownId` gives the signed-in user's id (whose messages are the user's own).
    explicit MessageDelivery(std::function<QString()> ownId, QObject* parent = nullptr);

    // History messages mark nothing as new.
    void show(bool history, const openim::IMMessage& message);
    void showTribe(bool history, const openim::IMTribeMessage& message);
    AlertCoalescer& alerts() { return alerts_; }

signals:
    void chatMessage(const BaseMsg::MMessage& message);

private:
    void deliver(const BaseMsg::MMessage& m, const QString& preview);
    void alert(const AlertCoalescer::Alert& a);
    // False for task cards whose event the user's task settings silence (the card is shown
    // all the same).
    bool taskCardAlerts(const BaseMsg::MMessage& m) const;

    std::function<QString()> ownId_;
    AlertCoalescer alerts_{[this](const AlertCoalescer::Alert& a) { alert(a); }};
};
