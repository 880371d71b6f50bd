// The firmware side of the transmission channel: packets in, reply pieces out.
#pragma once

#include <cstdint>

#include "emu/state.hpp"

namespace kopa_emu
{

/// Answers one request packet of device `logic_id` into `rsp`: joins multi-packet requests,
/// executes the command on its last packet and hands out the reply in pieces. Records are
/// already checked for size; the device is present. Applies the channel faults and returns
/// the value that *rsp_len must take (normally KOPA_RSP_SIZE).
uint32_t answer_packet(Session &session, uint32_t logic_id, const ds_req &req, ds_rsp &rsp);

/// Forgets the joined requests and pending replies of this process (for tests).
void reset_channel();

} // namespace kopa_emu
