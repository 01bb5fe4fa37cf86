#pragma once

#include <QString>

#include "base/ref_ptr_counted.h"
#include "openim/ihost_application.h"

// The client's host object for the SDK: where the SDK keeps its per-account stores.
class CHostApplication : public base::RefPtrCounted<openim::IHostApplication> {
public:
    explicit CHostApplication(const QString& dataFolder);
    base::FilePath GetDataFolder() override;

private:
    QString dataFolder_;
};
