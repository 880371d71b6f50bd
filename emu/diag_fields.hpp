// The diagnostics fields of `kopa-emu get` / `kopa-emu set`: duplex, link flaps, the optical
// module's readings, the PCIe link, the peer table, the processes and the RoCE test.
#pragma once

#include <string>
#include <string_view>

#include "emu/state.hpp"

namespace kopa_emu
{

/// Names of the diagnostics fields, space-separated.
const char *diag_field_names();

/// True when `name` is a diagnostics field.
bool is_diag_field(std::string_view name);

/// Puts the value of diagnostics field `name` of `d` in `out`. Always true for a known name.
bool get_diag_field(const DeviceState &d, std::string_view name, std::string &out);

/// Sets diagnostics field `name` of `d` from `value`; false with a reason in `err`.
bool set_diag_field(DeviceState &d, std::string_view name, std::string_view value,
                    std::string &err);

} // namespace kopa_emu
