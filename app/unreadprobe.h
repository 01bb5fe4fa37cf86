#pragma once

#include <QString>
#include <QStringList>

#include <vector>

// For the burst benchmark, which watches a real client from outside: when the environment
// sets QUELIX_UNREAD_PROBE to a comma-separated list of totals ("1,10001"), the client writes
// "unread-reached N" on standard error the first time its unread total (the count in the
// window title) reaches each of them. Without the variable it costs one comparison.
//
// For tests that restart a real client: with QUELIX_TALK_PROBE set, every change of the total
// also writes "talk-list TOTAL TITLE|id:count id:count ..." (rows top to bottom).
class UnreadProbe {
public:
    static void totalChanged(int total);
    static bool watchesTalkList();
    static void talkList(int total, const QString& title, const QStringList& rows);

private:
    UnreadProbe();
    std::vector<int> targets_;  // ascending, the ones not reached yet
};
