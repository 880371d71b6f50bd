// The firmware's port state beyond addresses and routes: the ARP table, policy rules and routes,
// the generic settings (static speed, optical auto-adaptation), the FEC mode and gratuitous ARP.
#pragma once

#include <cstdint>
#include <vector>

#include "emu/firmware.hpp"
#include "emu/state.hpp"

namespace kopa_emu
{

/// True for the opcodes run_port_state_command() executes.
bool is_port_state_command(uint32_t opcode);

/// Executes one of those commands on `dev`; sets `dirty` when the state changed. Returns the
/// firmware result: -22 for a value out of range or a record of another size, -2 for a delete
/// of an absent entry, 5000 when a table is full.
int32_t run_port_state_command(const Command &cmd, DeviceState &dev, std::vector<uint8_t> &reply,
                               bool &dirty);

/// Speeds in Mbit/s that the port can be fixed at (0 takes a static speed back).
bool is_static_speed(uint32_t mbps);

} // namespace kopa_emu
