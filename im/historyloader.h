#pragma once

#include <QString>
#include <vector>

#include "openim/im_message.h"
#include "openim/im_tribe_message.h"
#include "openim/result_code.h"

class OpenIMManager;

// A conversation's history, a page at a time from the newest back: the store first, then the
// server's archive. The tribe is asked when the directory knows the id as one, else the
// one-to-one conversation: a colleague who is no longer in the directory still has a history.
class HistoryLoader {
public:
    static constexpr int kPageSize = 7;

    // The SDK reports each page to `core`, which hands it back to showPage().
    explicit HistoryLoader(OpenIMManager* core) : core_(core) {}

    // The newest page, wherever an earlier request left the cursor.
    void latest(const QString& id);
    // The page before the last one asked for.
    void more(const QString& id);

    // Any thread: a page is shown whatever the archive said (what the store had is in it);
    // an archive error goes to the log.
    static void noteResult(const QString& id, const openim::ResultCode& result, size_t stored);
    // GUI thread.
    void showPage(const std::vector<openim::IMMessage>& messages);
    void showTribePage(const std::vector<openim::IMTribeMessage>& messages);

private:
    OpenIMManager* core_;
};
