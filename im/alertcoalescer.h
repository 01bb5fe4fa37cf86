#pragma once

#include <QString>
#include <functional>
#include <vector>

#include "conversationrecord.h"

// Gathers the new-message alerts of one slice of shown messages, so that a burst updates a
// conversation's row, the title, the tray and the sound once per slice rather than once per
// message. Outside a slice an alert goes out at once.
class AlertCoalescer {
public:
    struct Alert {
        ConversationRecord record;  // of the conversation's latest message in the slice
        QString preview;            // of that message
        int count = 0;              // messages of the conversation in the slice
    };
    using Sink = std::function<void(const Alert&)>;

    explicit AlertCoalescer(Sink sink) : sink_(std::move(sink)) {}

    void add(const ConversationRecord& record, const QString& preview);

    // Slices nest; the outermost end sends what was gathered, oldest conversation first, so
    // the one with the newest message ends on top of the talk list as it would have.
    class Slice {
    public:
        explicit Slice(AlertCoalescer& c) : c_(c) { ++c_.depth_; }
        ~Slice() { c_.end(); }
        Slice(const Slice&) = delete;
        Slice& operator=(const Slice&) = delete;

    private:
        AlertCoalescer& c_;
    };

private:
    void end();

    Sink sink_;
    int depth_ = 0;
    std::vector<Alert> pending_;
};
