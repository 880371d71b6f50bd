// The named device fields that `kopa-emu get` and `kopa-emu set` read and change.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "emu/state.hpp"

namespace kopa_emu
{

/// Names of every field, space-separated, for the help text.
const char *field_names();

/// Puts the value of `field` of device `logic_id` in `out` (one value, machine-readable; routes
/// one per line). Returns true, or false with a one-line reason in `out`.
bool get_field(Session &session, uint32_t logic_id, std::string_view field, std::string &out);

/// Sets `field` of device `logic_id` from `value`. Returns true, or false with a reason in `err`.
bool set_field(Session &session, uint32_t logic_id, std::string_view field, std::string_view value,
               std::string &err);

/// Strict unsigned number (decimal, or hexadecimal with 0x); false on any stray character.
bool parse_u32(std::string_view text, uint32_t &out);
/// Strict signed number (decimal, or hexadecimal with 0x).
bool parse_i64(std::string_view text, int64_t &out);

} // namespace kopa_emu
