#pragma once

#include <QString>

// The tip lines a tribe's page shows when its membership changes: the long form for the
// user, the short form after another member's name.
class TribeTips {
public:
    enum Event { Joined, Quit, Kicked, Dismissed };
    static QString text(Event event, bool self, const QString& memberName);
};
