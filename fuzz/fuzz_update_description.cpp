// The update description ("QX_update.ini") as the update check decides from it.
#include <QCoreApplication>
#include <QTemporaryDir>

#include "triggermanager.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static int argc = 1;
    static char name[] = "fuzz_update_description";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    static QTemporaryDir dir;
    static quelix::TriggerManager trigger(nullptr, dir.path());
    const QString path = dir.filePath(QStringLiteral("QX_update.ini"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) return 0;
    file.write(reinterpret_cast<const char*>(data), qint64(size));
    file.close();
    trigger.decide(path);
    quelix::TriggerManager::packVersion(
        QString::fromUtf8(reinterpret_cast<const char*>(data), int(std::min<size_t>(size, 64))));
    return 0;
}
