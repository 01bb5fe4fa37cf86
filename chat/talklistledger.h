#pragma once

#include <QString>

// What the talk list keeps on disk for the signed-in user: its rows in order of activity
// (oldest first, as earlier releases wrote them) and the conversations the user muted. Each
// change is saved at once, unless saves are held for a batch of changes (one write for all).
class TalkListLedger {
public:
    void add(const QString& id);
    void remove(const QString& id);
    // The conversation had the newest activity.
    void raise(const QString& id);

    static bool isMuted(const QString& id);
    void setMuted(const QString& id, bool muted);

    // Holds saves until release(), which writes once if anything changed.
    void hold() { held_ = true; }
    void release();

private:
    void save();

    bool held_ = false;
    bool dirty_ = false;
};
