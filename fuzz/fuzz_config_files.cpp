// The JSON configuration files under <Documents>/Quelix, each read as a file on disk
// could hold it (a half-written or hand-edited file).
#include "listlogin_t.h"
#include "listshield_t.h"
#include "listtalk_t.h"
#include "settings_t.h"
#include "userconfig_t.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size));
    quelix::settings_t settings;
    settings.parse(bytes);
    quelix::listtalk_t talks;
    talks.parse(bytes);
    quelix::listlogin_t logins;
    logins.parse(bytes);
    quelix::listshield_t shields;
    shields.parse(bytes);
    quelix::userconfig_t user;
    user.parse(bytes);
    return 0;
}
