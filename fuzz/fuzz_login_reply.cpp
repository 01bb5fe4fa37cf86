// The log-in reply: the envelope, then the account inside it as the log-in reads it.
#include <QJsonObject>

#include "envelope.h"
#include "loginuser.h"
#include "support/fuzzcheck.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Envelope e =
        Envelope::parse(QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size)));
    if (!e.isSuccess()) return 0;
    const QJsonObject results = e.results().toObject();
    LoginUser user;
    LoginUser::fromJson(results.contains(QStringLiteral("user"))
                            ? results.value(QStringLiteral("user")).toObject()
                            : results,
                        &user);
    return 0;
}
