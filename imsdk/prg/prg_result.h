#pragma once

#include <cstdint>

namespace prg {

// Result codes of the root and component operations (the usual COM values).
using PrgResult = std::uint32_t;
constexpr PrgResult PRG_OK = 0;
constexpr PrgResult PRG_E_NOINTERFACE = 0x80004002u;
constexpr PrgResult PRG_E_FAIL = 0x80004005u;
constexpr PrgResult PRG_E_INVALIDARG = 0x80070057u;

}  // namespace prg
