// The firmware side of the transmission channel: packets in, reply pieces out.
#pragma once

#include <cstdint>

#include "emu/state.hpp"

namespace kopa_emu
{

/// What one call of kopa_cmd_get_network_device_info hands back.
struct CallAnswer {
    int ret;          ///< return value of the call
    uint32_t rsp_len; ///< value *rsp_len takes (normally KOPA_RSP_SIZE)
    bool replied;     ///< the reply record holds an answer to copy out
};

/// Answers one call of kopa_cmd_get_network_device_info for device `logic_id`. `well_formed`
/// tells whether the caller's pointers and lengths were right; `req` is then its request.
/// Joins multi-packet requests, executes the command on its last packet, hands out the reply
/// in pieces, and applies every fault that hits the call (which may sleep with the state
/// unlocked).
CallAnswer answer_call(Session &session, uint32_t logic_id, const ds_req &req, bool well_formed,
                       ds_rsp &rsp);

/// Forgets the joined requests, pending replies and reply counts of this process (for tests).
void reset_channel();

} // namespace kopa_emu
