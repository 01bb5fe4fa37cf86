#pragma once

#include <QVector>

#include "configbase_t.h"

namespace quelix {

// Muted conversations of the signed-in user, "ShieldList.db" in the user's folder. The
// file name and the JSON key ("SheildList") are spelled differently; both are kept.
class listshield_t : public configbase_t {
public:
    // Four numbers name one muted conversation: the conversation id, its kind (user or
    // tribe), the company and the time it was muted.
    struct Entry {
        quint64 id = 0;
        quint64 role = 0;
        quint64 companyId = 0;
        quint64 time = 0;
        bool operator==(const Entry& o) const {
            return id == o.id && role == o.role && companyId == o.companyId && time == o.time;
        }
    };

    QByteArray serialize() const override;
    bool parse(const QByteArray& bytes) override;

    bool isShielded(quint64 id) const;
    // Mutes (true) or unmutes (false) a conversation; returns whether the list changed.
    bool setShielded(const Entry& entry, bool shielded);

    QVector<Entry> entries;
};

}  // namespace quelix
