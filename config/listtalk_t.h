#pragma once

#include <QVector>

#include "configbase_t.h"

namespace quelix {

// Recent conversations of the signed-in user, "TalkList.db" in the user's folder.
class listtalk_t : public configbase_t {
public:
    struct Entry {
        quint64 key = 0;
        quint64 id = 0;
        quint64 role = 0;
        quint64 companyId = 0;
        // Written as a 64-bit number but read back through 32 bits, as earlier
        // releases did; the field is 64 bits wide so a fresh value is not cut in memory.
        qint64 lastTime = 0;
        quint64 time = 0;
        QString text;
    };

    QByteArray serialize() const override;
    bool parse(const QByteArray& bytes) override;

    // Appends a conversation unless its id is listed already; returns whether it was added.
    bool add(const Entry& entry);
    // Removes every entry with the id; returns whether one was there.
    bool remove(quint64 id);
    // Moves the entry to the end (the newest activity); returns whether anything moved.
    bool raise(quint64 id);
    bool contains(quint64 id) const;

    QVector<Entry> entries;
};

}  // namespace quelix
