// The scripted IM SDK's services, registered over the real SDK root for the IM core's tests.
#include "scriptedsdk.h"

#include <algorithm>

#include "base/ref_ptr_counted.h"
#include "openim/iconversation.h"
#include "openim/iconversation_service.h"
#include "openim/ilogin_account_service.h"
#include "openim/ilogin_service.h"
#include "openim/ipresence_service.h"
#include "openim/isync_service.h"
#include "openim/service_guids.h"
#include "prg/iprg_com.h"
#include "prg/prg_component.h"
#include "sdk/wide_text.h"

using openim::IMUserID;

Script g_script;

IMUserID user(const wchar_t* account) { return IMUserID(L"23015524", account); }

openim::IMMessage textMessage(quint64 id, qint64 time, const QString& text) {
    openim::IMMessage m;
    m.msgId = id;
    m.msgTime = time;
    m.sender = user(L"101");
    m.receiver = user(L"100");
    m.content.type = openim::kContentText;
    m.content.content = prg::PrgStringT<wchar_t>(text.toStdWString());
    return m;
}

namespace {

class FakeLogin : public base::RefPtrCounted<openim::ILoginService> {
public:
    void RegisterLoginStep(const base::Callback<void(openim::LoginStep)>&) override {}
    void RegisterLoginOk(const base::Callback<void(openim::LoginOkParam)>&) override {}
    void RegisterKicked(const base::Callback<void(openim::KickedParam)>&) override {}
    void RegisterLoginFail(const base::Callback<void(openim::LoginFailParam)>&) override {}
    void RegisterReLoginFail(const base::Callback<void(openim::ReLoginFailParam)>&) override {}
    void RegisterReLoginOk(const base::Callback<void(openim::ReLoginOkParam)>&) override {}
    void RegisterNetDisConnect(const base::Callback<void(openim::NetDisConnectParam)>&) override {}
    void RegisterLogouted(const base::Callback<void(openim::LogoutedParam)>&) override {}
    void Login(const openim::LoginParam&) override { ++g_script.logins; }
    void ReLogin() override { ++g_script.relogins; }
    void Logout() override {}
};

class FakeAccount : public base::RefPtrCounted<openim::ILoginAccountService> {
public:
    IMUserID GetLoginUserID() override { return user(L"100"); }
    bool IsLoggedIn() override { return true; }
};

class FakePresence : public base::RefPtrCounted<openim::IPresenceService> {
public:
    void RequestPresence(const prg::PrgStringT<wchar_t>&, const prg::PrgStringT<wchar_t>&, bool,
                         const PresenceCallback&) override {
        ++g_script.presenceRequests;  // never answered: the test answers through the manager
    }
};

class FakeSync : public base::RefPtrCounted<openim::ISyncService> {
public:
    void RegisterSync(std::int32_t,
                      const base::Callback<void(prg::PrgStringT<wchar_t>)>&) override {
        ++g_script.syncs;
    }
};

class FakeConversation : public base::RefPtrCounted<openim::IConversation> {
public:
    IMUserID GetPeer() override { return user(L"101"); }
    void SendText(const prg::PrgStringT<wchar_t>& text, const SendCallback&) override {
        g_script.sends << "text|" + wide_text::toQ(text);
    }
    void SendCustom(const prg::PrgStringT<wchar_t>& content,
                    const prg::PrgStringT<wchar_t>& summary, const SendCallback&) override {
        g_script.sends << wide_text::toQ(summary) + "|" + wide_text::toQ(content);
    }
    void SendImage(const base::FilePath& path, std::int32_t, std::int32_t,
                   const SendCallback&) override {
        g_script.sends << "image|" + wide_text::pathToQ(path);
    }
    void SendFile(const base::FilePath&, const SendCallback&) override {}
    std::int32_t GetUnreadCount() override { return std::int32_t(g_script.unread.size()); }
    void GetUnreadMessages(std::vector<openim::IMMessage>* out) override { *out = g_script.unread; }
    void MarkRead() override { g_script.unread.clear(); }
    void MarkMessagesRead(const std::vector<std::uint64_t>& ids) override {
        ++g_script.markReads;
        for (std::uint64_t id : ids)
            g_script.unread.erase(
                std::remove_if(g_script.unread.begin(), g_script.unread.end(),
                               [id](const openim::IMMessage& m) { return m.msgId == id; }),
                g_script.unread.end());
    }
    void GetHistory(std::int32_t, const HistoryCallback& done) override {
        done.Run(L"101", openim::ResultCode(), g_script.history);
    }
    void ResetHistory() override { ++g_script.historyResets; }
};

class FakeConversations : public base::RefPtrCounted<openim::IConversationService> {
public:
    void RegisterNewMessageCallback(const NewMessageCallback&) override {}
    prg::PrgResult GetConversation(const IMUserID&, openim::IConversation** out) override {
        *out = new FakeConversation;
        (*out)->AddRef();
        return prg::PRG_OK;
    }
    void GetUnreadPeers(std::vector<IMUserID>*) override {}
    void GetUnseen(std::vector<openim::IMUnseen>*) override {}
    void MarkSeen(const IMUserID&) override {}
    void MarkTribeSeen(openim::IMTribeID) override {}
};

void install(const char* module, const char* iface, prg::IPrgUnknown* object) {
    auto* component = new prg::PrgComponent;
    component->AddRef();
    component->SetInterface(iface, object);
    GetPrgCOM()->RegisterComponent(module, component);
    component->Release();
}

}  // namespace

void installScriptedSdk() {
    install(openim::kLoginModule, openim::kLoginInterface, new FakeLogin);
    install(openim::kLoginAccountModule, openim::kLoginAccountInterface, new FakeAccount);
    install(openim::kPresenceModule, openim::kPresenceInterface, new FakePresence);
    install(openim::kSyncModule, openim::kSyncInterface, new FakeSync);
    install(openim::kConversationModule, openim::kConversationInterface, new FakeConversations);
}
