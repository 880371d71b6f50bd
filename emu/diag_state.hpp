// The diagnostics state of an emulated device: counters that grow with the link's up time, link
// flaps, the optical module, the PCIe link, the peer table of ping and the RoCE test, processes.
#pragma once

#include <cstdint>

#include "emu/state.hpp"

namespace kopa_emu
{

/// Link-up time that a fresh device's counters have already grown over: an hour.
inline constexpr uint64_t kFreshUptimeNs = 3600ull * 1000000000ull;

/// Nanoseconds of the realtime clock (shared by every process of the host).
uint64_t now_ns();

/// Sets the diagnostics defaults of a fresh device `logic_id` (link up since now).
void default_diag_state(DeviceState &d, uint32_t logic_id);

/// Copies into `d`, a device just reset, what a reset leaves of the diagnostics of `old`: the
/// counters, the optical module, the PCIe link, the duplex and the peer table. The link counts
/// its flaps afresh from the reset.
void keep_diag_state(DeviceState &d, const DeviceState &old);

/// Adds the time since the last update to the counters' link-up time when the link is up.
void advance_stats(DeviceState &d);

/// Accounts for the link of `d` changing to `up` (call before storing it): the counters stop
/// or start growing, a change to down counts a flap, and the change time is noted.
void note_link_change(DeviceState &d, uint32_t up);

/// The peer table entry of `ip` (network byte order), or nullptr.
PingPeer *find_peer(DeviceState &d, uint32_t ip);

} // namespace kopa_emu
