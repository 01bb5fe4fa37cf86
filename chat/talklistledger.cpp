#include "talklistledger.h"

#include <QDateTime>

#include "configstore.h"
#include "directorystore.h"

void TalkListLedger::add(const QString& id) {
    ConfigStore& config = ConfigStore::instance();
    if (!config.hasUser()) return;
    quelix::listtalk_t::Entry entry;
    entry.id = id.toULongLong();
    entry.role = DirectoryStore::instance().isUser(id) ? 0 : 1;
    if (config.talkList().add(entry)) save();
}

void TalkListLedger::remove(const QString& id) {
    ConfigStore& config = ConfigStore::instance();
    if (!config.hasUser()) return;
    if (config.talkList().remove(id.toULongLong())) save();
}

void TalkListLedger::raise(const QString& id) {
    ConfigStore& config = ConfigStore::instance();
    if (!config.hasUser()) return;
    if (config.talkList().raise(id.toULongLong())) save();
}

bool TalkListLedger::isMuted(const QString& id) {
    ConfigStore& config = ConfigStore::instance();
    return config.hasUser() && config.shieldList().isShielded(id.toULongLong());
}

void TalkListLedger::setMuted(const QString& id, bool muted) {
    ConfigStore& config = ConfigStore::instance();
    bool ok = false;
    const quint64 number = id.toULongLong(&ok);
    if (!config.hasUser() || !ok) return;
    quelix::listshield_t::Entry entry;
    entry.id = number;
    entry.role = DirectoryStore::instance().isUser(id) ? 0 : 1;
    entry.companyId = DirectoryStore::instance().companyId().toULongLong();
    entry.time = quint64(QDateTime::currentSecsSinceEpoch());
    if (config.shieldList().setShielded(entry, muted)) config.shieldList().save();
}

void TalkListLedger::release() {
    held_ = false;
    if (dirty_) save();
}

void TalkListLedger::save() {
    if (held_) {
        dirty_ = true;
        return;
    }
    dirty_ = false;
    ConfigStore::instance().talkList().save();
}
