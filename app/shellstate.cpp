#include "shellstate.h"

#include <QFile>

#include "configbase_t.h"
#include "configstore.h"
#include "uifont.h"

namespace {
// Sizes offered by the settings page; anything else in the file is ignored.
bool usableFontSize(int px) { return px == 0 || (px >= 10 && px <= 24); }
}  // namespace

QString ShellState::path(const ConfigStore& store) {
    return store.folderPath(ConfigStore::Config) + QStringLiteral("/Shell.ini");
}

QString ShellState::value(const ConfigStore& store, const QString& key) {
    return ConfigStore::readValueAt(path(store), key);
}

bool ShellState::setValue(const ConfigStore& store, const QString& key, const QString& value) {
    QJsonObject o;
    QFile f(path(store));
    if (f.open(QIODevice::ReadOnly)) quelix::configbase_t::parseObject(f.readAll(), &o);
    f.close();
    o.insert(key, value);
    return quelix::configbase_t::writeFileAtomically(path(store), quelix::configbase_t::toBytes(o));
}

int ShellState::fontSize(const ConfigStore& store) {
    const int px = value(store, QStringLiteral("FontSize")).toInt();
    return usableFontSize(px) ? px : 0;
}

void ShellState::applyFontSize(int pixels) {
    UiFont::instance().apply(usableFontSize(pixels) ? pixels : 0);
}
