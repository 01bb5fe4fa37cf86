#include "sdk/sdk_instance.h"

#include <QDir>
#include <QStandardPaths>
#include <QThread>

#include "base/thread_hooks.h"
#include "openim/service_guids.h"
#include "prg/prg_component.h"
#include "sdk/im_engine.h"
#include "sdk/sdk_services.h"

SdkInstance::SdkInstance(QString dataFolder)
    : dataFolder_(dataFolder.isEmpty() ? defaultDataFolder() : std::move(dataFolder)),
      root_([this](prg::PrgCom&, const base::FilePath&) { start(); }) {}

SdkInstance::~SdkInstance() {
    root_.Uninit();
    if (!thread_) return;
    if (ImEngine* e = engine_)
        QMetaObject::invokeMethod(
            e, [e] { delete e; }, Qt::BlockingQueuedConnection);
    thread_->quit();
    thread_->wait();
    delete thread_;
}

QString SdkInstance::defaultDataFolder() {
    const QStringList docs = QStandardPaths::standardLocations(QStandardPaths::DocumentsLocation);
    const QString base = docs.isEmpty() ? QDir::homePath() : docs.first();
    return base + QStringLiteral("/Quelix/OpenIM");
}

void SdkInstance::start() {
    if (!thread_) {
        thread_ = new QThread;
        thread_->setObjectName(QStringLiteral("openim-sdk"));
        // Stanzas are parsed into DOM trees recursively on this thread. Their depth is
        // bounded before parsing, so this is headroom, sized alike on every platform
        // (Windows would give a thread only 1 MiB).
        thread_->setStackSize(kStackBytes);
        thread_->start();
        // The engine and its sockets belong to the SDK thread from their first breath.
        QObject anchor;
        anchor.moveToThread(thread_);
        ImEngine* engine = nullptr;
        QMetaObject::invokeMethod(
            &anchor,
            [&engine] {
                base::ThreadHooks::runStartHook();
                engine = new ImEngine;
            },
            Qt::BlockingQueuedConnection);
        engine_ = engine;
    }
    auto* services = new SdkServices(engine_, dataFolder_);
    services->AddRef();
    struct Row {
        const char* module;
        const char* interface;
        prg::IPrgUnknown* object;
    };
    const Row rows[] = {
        {openim::kCoreModule, openim::kCoreInterface,
         static_cast<openim::IIMCoreService*>(services)},
        {openim::kMediaModule, openim::kMediaInterface,
         static_cast<openim::IMediaService*>(services)},
        {openim::kConversationModule, openim::kConversationInterface,
         static_cast<openim::IConversationService*>(services)},
        {openim::kPresenceModule, openim::kPresenceInterface,
         static_cast<openim::IPresenceService*>(services)},
        {openim::kLoginAccountModule, openim::kLoginAccountInterface,
         static_cast<openim::ILoginAccountService*>(services)},
        {openim::kLoginModule, openim::kLoginInterface,
         static_cast<openim::ILoginService*>(services)},
        {openim::kSyncModule, openim::kSyncInterface, static_cast<openim::ISyncService*>(services)},
        {openim::kTribeMediaModule, openim::kTribeMediaInterface,
         static_cast<openim::ITribeMediaService*>(services)},
        {openim::kTribeModule, openim::kTribeInterface,
         static_cast<openim::ITribeService*>(services)},
        {openim::kXPushModule, openim::kXPushInterface,
         static_cast<openim::IXPushService*>(services)},
    };
    for (const Row& row : rows) {
        auto* component = new prg::PrgComponent;
        component->AddRef();
        component->SetInterface(row.interface, row.object);
        root_.RegisterComponent(row.module, component);
        component->Release();
    }
    static_cast<openim::IIMCoreService*>(services)->Release();
}
