// "UrlText.ini", the table of back-end addresses, read key by key as the client does.
#include <QTemporaryDir>

#include "configstore.h"
#include "support/fuzzcheck.h"
#include "urltable.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("UrlText.ini"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) return 0;
    file.write(reinterpret_cast<const char*>(data), qint64(size));
    file.close();
    for (int i = 0; i < UrlTable::Count; ++i) {
        const QString fallback = UrlTable::defaultUrl(UrlTable::Key(i));
        const QString url = ConfigStore::readValueAt(
            path, QLatin1String(UrlTable::keyName(UrlTable::Key(i))), fallback);
        (void)url;
    }
    return 0;
}
