#pragma once

// Module and interface GUID texts of the SDK's services, exactly as the client asks for
// them (the presence service's carry doubled braces).
namespace openim {

constexpr const char kCoreModule[] = "{8801B716-F9FA-4B7B-A185-34D17796D7D3}";
constexpr const char kCoreInterface[] = "{FB176B1A-D2D7-4F4B-B726-FB907A60DD3A}";
constexpr const char kMediaModule[] = "{BCE18FE9-FA6B-45C4-86EE-173F44E6D445}";
constexpr const char kMediaInterface[] = "{0BCDFAC9-8D66-4BF3-B35D-D7A808DAD499}";
constexpr const char kConversationModule[] = "{75241B03-9FD5-4C2A-81BF-6578717B9AE0}";
constexpr const char kConversationInterface[] = "{DB84E903-A2C9-481D-95FD-361E68B1AFA2}";
constexpr const char kPresenceModule[] = "{{CDF0254D-FADE-4ABF-A354-832336D71990}}";
constexpr const char kPresenceInterface[] = "{{746CDF64-1614-4F3B-859B-EC8F3F724EE7}}";
constexpr const char kLoginAccountModule[] = "{DDEA02C5-4A7A-4615-8E0C-8FB78A041A9E}";
constexpr const char kLoginAccountInterface[] = "{D19B9ABF-50C9-453A-BEFA-96ED2CDE6BBA}";
constexpr const char kLoginModule[] = "{E837A468-2A23-4857-B9C6-BBF2988F84AB}";
constexpr const char kLoginInterface[] = "{7FDA2BBC-8266-4CFE-AC9A-4ABFB5FEBA70}";
constexpr const char kSyncModule[] = "{91DD3213-E79F-43F6-8889-C26C8B5BD0F1}";
constexpr const char kSyncInterface[] = "{460A169A-2300-4E99-8990-0783DE7FC075}";
constexpr const char kTribeMediaModule[] = "{34523D82-FF8C-4534-BF3D-65A746941E6B}";
constexpr const char kTribeMediaInterface[] = "{075E7475-9B4C-45EB-9336-CB124182D178}";
constexpr const char kTribeModule[] = "{0AC12C3B-B92C-4FD9-9D92-1F4C6DEB5875}";
constexpr const char kTribeInterface[] = "{AAB43491-7BA5-4029-8874-0EF2E49A5016}";
constexpr const char kXPushModule[] = "{53F2AC1E-DEAE-41CE-9748-1F92C34D8EBD}";
constexpr const char kXPushInterface[] = "{227E333F-7DDD-407B-8BF4-FF5BF463E619}";

}  // namespace openim
