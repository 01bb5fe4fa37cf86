#pragma once

#include <QString>

namespace qx_output {

// The web pages that task and goals-table cards open in the sidebar, on the back end's
// host.
class CardUrls {
public:
    static QString task(const QString& taskId);
    static QString createTask(const QString& projectId);
    static QString goals(const QString& projectId);
};

}  // namespace qx_output
