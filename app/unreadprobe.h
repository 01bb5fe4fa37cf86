#pragma once

#include <vector>

// For the burst benchmark, which watches a real client from outside: when the environment
// sets QUELIX_UNREAD_PROBE to a comma-separated list of totals ("1,10001"), the client writes
// "unread-reached N" on standard error the first time its unread total (the count in the
// window title) reaches each of them. Without the variable it costs one comparison.
class UnreadProbe {
public:
    static void totalChanged(int total);

private:
    UnreadProbe();
    std::vector<int> targets_;  // ascending, the ones not reached yet
};
