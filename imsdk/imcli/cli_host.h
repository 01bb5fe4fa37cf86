#pragma once

#include "base/ref_ptr_counted.h"
#include "openim/ihost_application.h"

// The command-line client's host object: tells the SDK where to keep its stores.
class CliHost : public base::RefPtrCounted<openim::IHostApplication> {
public:
    explicit CliHost(base::FilePath dataFolder) : dataFolder_(std::move(dataFolder)) {}
    base::FilePath GetDataFolder() override { return dataFolder_; }

private:
    base::FilePath dataFolder_;
};
