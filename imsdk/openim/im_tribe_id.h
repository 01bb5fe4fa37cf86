#pragma once

#include <cstdint>

namespace openim {

// A tribe (group chat); its id is the project's 64-bit id.
struct IMTribeID {
    IMTribeID() = default;
    explicit IMTribeID(std::uint64_t id) : tribeId(id) {}

    std::uint64_t tribeId = 0;

    bool operator==(const IMTribeID& o) const { return tribeId == o.tribeId; }
    bool operator!=(const IMTribeID& o) const { return tribeId != o.tribeId; }
    bool operator<(const IMTribeID& o) const { return tribeId < o.tribeId; }
};

}  // namespace openim
