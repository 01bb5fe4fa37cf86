#pragma once

#include <QPointer>
#include <QString>
#include <atomic>
#include <mutex>

#include "base/scoped_refptr.h"
#include "openim/iconversation_service.h"
#include "openim/iim_core_service.h"
#include "openim/ilogin_account_service.h"
#include "openim/ilogin_service.h"
#include "openim/imedia_service.h"
#include "openim/ipresence_service.h"
#include "openim/isync_service.h"
#include "openim/itribe_media_service.h"
#include "openim/itribe_service.h"
#include "openim/ixpush_service.h"

class ImEngine;

// The ten services of the SDK, as one object: each interface is a thin door to the
// engine, which does the work on the SDK thread (tribes: the rooms beside it).
class SdkServices : public openim::IIMCoreService,
                    public openim::IMediaService,
                    public openim::IConversationService,
                    public openim::IPresenceService,
                    public openim::ILoginAccountService,
                    public openim::ILoginService,
                    public openim::ISyncService,
                    public openim::ITribeMediaService,
                    public openim::ITribeService,
                    public openim::IXPushService {
public:
    SdkServices(ImEngine* engine, QString defaultDataFolder);

    long AddRef() override;
    long Release() override;

    // core
    void SetHostApplication(openim::IHostApplication* host) override;
    void Start(const base::FilePath& resourceFolder,
               const prg::PrgStringT<wchar_t>& appKey) override;
    prg::PrgStringT<wchar_t> GetAppKey() override;
    void GetEmotionItems(std::vector<openim::IMEmotionItem>* items) override;
    // media
    void RegisterDownloadCallback(const openim::IMediaService::DownloadCallback& cb) override;
    void DownloadMedia(std::uint64_t msgId) override;
    // conversations
    void RegisterNewMessageCallback(const NewMessageCallback& cb) override;
    prg::PrgResult GetConversation(const openim::IMUserID& peer,
                                   openim::IConversation** out) override;
    void GetUnreadPeers(std::vector<openim::IMUserID>* peers) override;
    void GetUnseen(std::vector<openim::IMUnseen>* conversations) override;
    void MarkSeen(const openim::IMUserID& peer) override;
    void MarkTribeSeen(openim::IMTribeID tribe) override;
    // presence
    void RequestPresence(const prg::PrgStringT<wchar_t>& userId,
                         const prg::PrgStringT<wchar_t>& companyId, bool withStatus,
                         const PresenceCallback& done) override;
    // login account
    openim::IMUserID GetLoginUserID() override;
    bool IsLoggedIn() override;
    // login
    void RegisterLoginStep(const base::Callback<void(openim::LoginStep)>& cb) override;
    void RegisterLoginOk(const base::Callback<void(openim::LoginOkParam)>& cb) override;
    void RegisterKicked(const base::Callback<void(openim::KickedParam)>& cb) override;
    void RegisterLoginFail(const base::Callback<void(openim::LoginFailParam)>& cb) override;
    void RegisterReLoginFail(const base::Callback<void(openim::ReLoginFailParam)>& cb) override;
    void RegisterReLoginOk(const base::Callback<void(openim::ReLoginOkParam)>& cb) override;
    void RegisterNetDisConnect(const base::Callback<void(openim::NetDisConnectParam)>& cb) override;
    void RegisterLogouted(const base::Callback<void(openim::LogoutedParam)>& cb) override;
    void Login(const openim::LoginParam& param) override;
    void ReLogin() override;
    void Logout() override;
    // sync
    void RegisterSync(std::int32_t mode,
                      const base::Callback<void(prg::PrgStringT<wchar_t>)>& done) override;
    // tribe media
    void RegisterDownloadCallback(const openim::ITribeMediaService::DownloadCallback& cb) override;
    void DownloadTribeMedia(std::uint64_t msgId) override;
    // tribes
    void RegisterTribesLoaded(const base::Callback<void()>& cb) override;
    void RegisterMemberJoined(
        const base::Callback<void(openim::IMTribeID, openim::IMUserID)>& cb) override;
    void RegisterMemberQuit(
        const base::Callback<void(openim::IMTribeID, openim::IMUserID)>& cb) override;
    void RegisterMemberKicked(
        const base::Callback<void(openim::IMTribeID, openim::IMUserID)>& cb) override;
    void RegisterRoleChanged(const base::Callback<void(openim::IMTribeID, openim::IMUserID,
                                                       openim::IMUserID)>& cb) override;
    void RegisterNameChanged(
        const base::Callback<void(openim::IMTribeID, prg::PrgStringT<wchar_t>)>& cb) override;
    void RegisterNoticeChanged(
        const base::Callback<void(openim::IMTribeID, prg::PrgStringT<wchar_t>)>& cb) override;
    void RegisterTribeDismissed(const base::Callback<void(const openim::IMTribeID&)>& cb) override;
    void RegisterTribeInfoChanged(const base::Callback<void(openim::IMTribeID)>& cb) override;
    void RegisterNewMessage(const base::Callback<void(openim::IMTribeID)>& cb) override;
    prg::PrgResult GetTribe(const openim::IMTribeID& tribe, openim::ITribe** out) override;
    void SyncTribes(const std::vector<openim::IMTribeID>& tribes,
                    const std::vector<prg::PrgStringT<wchar_t>>& names) override;
    void GetUnreadTribes(std::vector<openim::IMTribeID>* tribes) override;
    // push
    void RegisterStartOk(const base::Callback<void(openim::XPushStartOkParam)>& cb) override;
    void RegisterKicked(const base::Callback<void(openim::XPushKickedParam)>& cb) override;
    void RegisterStoped(const base::Callback<void(openim::XPushStopedParam)>& cb) override;
    void RegisterError(const base::Callback<void(openim::XPushErrorParam)>& cb) override;
    void RegisterMsgs(const base::Callback<void(std::vector<openim::XPushMsg>)>& cb) override;

private:
    ~SdkServices() override = default;
    template <class F>
    void post(F task);
    // Runs `task` with the rooms' callbacks on the SDK thread.
    template <class F>
    void onRooms(F task);

    std::atomic<long> refs_{0};
    QPointer<ImEngine> engine_;
    QString defaultDataFolder_;
    std::mutex lock_;
    base::scoped_refptr<openim::IHostApplication> host_;
    base::FilePath resourceFolder_;
};
