#pragma once

#include <QSet>

#include "configbase_t.h"

namespace quelix {

// Per-user alert and task-notification settings, "Settings.ini" in the user's folder.
class userconfig_t : public configbase_t {
public:
    QByteArray serialize() const override;
    bool parse(const QByteArray& bytes) override;

    bool sound = true;
    bool popup = true;
    bool trayShining = true;
    bool shotHide = false;
    bool reply = true;
    bool suspend = true;
    bool dispose = false;
    bool complete = true;
    bool createAndDelete = true;
    // The unread watermark: the second of the newest message shown, the IM store's ids of
    // those shown within that second (so that one of the same second is let through or held
    // out by id), and the newest store id shown (one stored after it is new, whatever its
    // time). A file without the ids (written before they were kept) holds out the whole
    // second of the mark.
    qint64 thisTime = 0;
    QSet<quint64> shownAtThisTime;
    bool shownAtThisTimeKnown = false;
    quint64 lastShownId = 0;
};

}  // namespace quelix
