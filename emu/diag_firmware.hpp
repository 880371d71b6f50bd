// The emulated firmware's diagnostics and statistics operations: counters, optical module, port
// status, PCIe, processes, registers, back-pressure, self-check, ping, the RoCE test, queue pair
// contexts and clock-data-recovery captures.
#pragma once

#include <cstdint>
#include <vector>

#include "emu/firmware.hpp"
#include "emu/state.hpp"

namespace kopa_emu
{

/// True for the opcodes run_diag_command() executes.
bool is_diag_command(uint32_t opcode);

/// Executes one of those commands on `dev` (device `cmd.logic_id`); sets `dirty` when the state
/// changed. Returns the firmware result: -22 for a request of another size or a value out of
/// range, -2 for a queue pair not in use, a report before any test or a stop without a running
/// test, -16 for a start while a test runs.
int32_t run_diag_command(const Command &cmd, DeviceState &dev, std::vector<uint8_t> &reply,
                         bool &dirty);

} // namespace kopa_emu
