// Any back-end reply body through the envelope every request reads first.
#include "envelope.h"
#include "support/fuzzcheck.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Envelope e =
        Envelope::parse(QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size)));
    FUZZ_CHECK(!e.isSuccess() || e.isValid());
    FUZZ_CHECK(!e.isSuccess() || e.errorCode() == Envelope::kSuccess);
    (void)e.results();
    (void)e.member(QStringLiteral("allDeptList"));
    (void)e.redirectUrl();
    (void)e.redirectToBeta();
    return 0;
}
