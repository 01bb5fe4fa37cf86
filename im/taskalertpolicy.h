#pragma once

#include <QJsonObject>
#include <QString>

namespace quelix {
class userconfig_t;
}

// Which task cards alert the user (unread mark, tray blink, sound, pop-up). Cards are always
// shown; the per-user settings choose which events also call for attention:
//   "CreateAndDelete" a task created or cancelled,  "Reply" a reply,
//   "Suspend" a task paused,  "Complete" a task finished,
//   "Dispose" the other state changes (back to waiting, being worked on) and assignments
//   of others.
// A task assigned to the user always alerts (it is now theirs to do) through the card the
// user gets directly; its copy in the tribe follows "Dispose" like others' assignments, so
// one assignment does not ring twice. What the user did alerts nobody but the others, like
// the user's own messages.
class TaskAlertPolicy {
public:
    // `card`: the task card's JSON; `ownId`: the signed-in user's id; `direct`: the card came
    // in a one-to-one conversation rather than a tribe.
    static bool alerts(const QJsonObject& card, const quelix::userconfig_t& settings,
                       const QString& ownId, bool direct = false);
};
