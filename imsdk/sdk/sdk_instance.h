#pragma once

#include <QPointer>
#include <QString>

#include "prg/prg_com.h"

class ImEngine;
class QThread;
class SdkServices;

// One complete SDK: a root whose Init starts the SDK thread with its engine and registers
// the ten services under their GUIDs. The process uses one through GetPrgCOM(); tests
// may run several side by side (two accounts in one process).
class SdkInstance {
public:
    // `dataFolder`: where stores go when the client's host object names none; empty for
    // "<Documents>/Quelix/OpenIM".
    explicit SdkInstance(QString dataFolder = QString());
    ~SdkInstance();
    SdkInstance(const SdkInstance&) = delete;
    SdkInstance& operator=(const SdkInstance&) = delete;

    // The SDK thread's stack.
    static constexpr unsigned kStackBytes = 8u * 1024 * 1024;

    prg::IPrgCOM* root() { return &root_; }
    static QString defaultDataFolder();

private:
    void start();

    QString dataFolder_;
    prg::PrgCom root_;
    QThread* thread_ = nullptr;
    QPointer<ImEngine> engine_;
};
