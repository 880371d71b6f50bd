// The emulated firmware: executes one whole command (opcode and payload) on a device's state.
#pragma once

#include <cstdint>
#include <vector>

#include "emu/state.hpp"

namespace kopa_emu
{

/// A command as the firmware sees it once its packets are joined.
struct Command {
    uint32_t logic_id;
    uint32_t opcode;
    const uint8_t *in; ///< payload, `size_in` bytes (may be null when 0)
    uint32_t size_in;
    uint32_t size_out; ///< caller's capacity; the reply is cut to it
    uint32_t client_pid;
};

/// Executes `cmd` on a present device; fills `reply` (at most cmd.size_out bytes) and returns the
/// firmware result (0 success, -2 nothing there, -22 refused, 5000 route table full, ...).
int32_t execute_command(Session &session, const Command &cmd, std::vector<uint8_t> &reply);

} // namespace kopa_emu
