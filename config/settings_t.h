#pragma once

#include "configbase_t.h"

namespace quelix {

// Global settings, "Settings.ini" in the Config folder.
class settings_t : public configbase_t {
public:
    QByteArray serialize() const override;
    bool parse(const QByteArray& bytes) override;

    const QString& userDir() const { return userDir_; }
    void setUserDir(const QString& dir) { userDir_ = dir; }
    // Where received files are saved; empty for the default (see ConfigStore::Download).
    const QString& downloadDir() const { return downloadDir_; }
    void setDownloadDir(const QString& dir) { downloadDir_ = dir; }
    bool closeQuit() const { return closeQuit_; }
    void setCloseQuit(bool quit) { closeQuit_ = quit; }
    int msgTime() const { return msgTime_; }
    void setMsgTime(int value) { msgTime_ = value; }
    int checkStateMs() const { return checkStateMs_; }
    void setCheckStateMs(int ms) { checkStateMs_ = ms; }
    int netConnectMs() const { return netConnectMs_; }
    void setNetConnectMs(int ms) { netConnectMs_ = ms; }

private:
    QString userDir_;
    QString downloadDir_;
    bool closeQuit_ = false;
    int msgTime_ = 16;
    int checkStateMs_ = 5000;
    int netConnectMs_ = 7000;
};

}  // namespace quelix
