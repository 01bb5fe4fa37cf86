#pragma once

#include <QTimer>

namespace quelix {
class userconfig_t;
}

// The unread watermark: which unread messages the user has been shown already, so that one
// shown before a crash or restart (and not yet marked read in the store) is not shown twice.
// It lives in the user's settings beside the ids it needs, so that it means the same after a
// restart and never mixes two accounts' store ids; it is saved a second after it moved
// rather than once per shown slice.
class UnreadWatermark {
public:
    UnreadWatermark();

    // Whether a message (its second and store id) is still to be shown.
    static bool passes(const quelix::userconfig_t& user, qint64 time, quint64 msgId);
    // A message was shown.
    static void advance(quelix::userconfig_t& user, qint64 time, quint64 msgId);

    // The signed-in user's settings are saved within a second (once for a whole burst).
    void saveSoon();
    // Saves now if a save is waiting (at logout and exit).
    void flush();

private:
    QTimer save_;
};
