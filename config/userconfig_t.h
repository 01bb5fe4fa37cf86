#pragma once

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
    qint64 thisTime = 0;
};

}  // namespace quelix
