#pragma once

#include <QJsonObject>
#include <QObject>
#include <QStringList>
#include <vector>

#include "base/scoped_refptr.h"
#include "openim/iconversation_service.h"
#include "openim/im_message.h"
#include "openim/login_params.h"
#include "prg/iprg_com.h"

class CliReceiver;

// quelix-imcli: signs in through the SDK and runs one command (see usage()).
class ImCli : public QObject {
    Q_OBJECT
public:
    explicit ImCli(QObject* parent = nullptr);
    ~ImCli() override;

    // Parses the command line and starts; returns false (after printing why) when the
    // arguments are wrong.
    bool start(const QStringList& arguments);
    static QString usage();

    // Called on the main thread by CliReceiver.
    void loggedIn();
    void failed(const QString& why);
    // The session dropped (or a relogin failed): sign in again after a growing pause.
    void connectionLost();
    void reloggedIn();
    void newMessages(const QString& sender);
    void sent(const openim::IMMessage& message, int sendCode, int uploadCode);
    void historyPage(int code, const std::vector<openim::IMMessage>& page);
    void printLine(const QJsonObject& object);

private:
    void runCommand();
    void finish(int code);
    base::scoped_refptr<openim::IConversation> conversation(const QString& peer);
    QJsonObject toJson(const openim::IMMessage& m) const;

    prg::IPrgCOM* root_ = nullptr;
    base::scoped_refptr<CliReceiver> receiver_;
    openim::LoginParam param_;
    QStringList command_;
    int listenCount_ = -1;  // messages to print before quitting; -1 for ever
    int printed_ = 0;
    int pagesLeft_ = 1;
    int pageSize_ = 20;
    bool finished_ = false;
    int retryMs_ = 0;  // the pause before the next relogin; 0 while connected
};
