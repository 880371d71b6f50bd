// The network transmission channel: request and reply records exchanged, packet by packet,
// with the device firmware through kopa_cmd_get_network_device_info.
#pragma once

#include <cstdint>

#include "platform/kopa_platform.h"

/// The caller's command parameter block, filled by each device operation.
struct network_channel_para {
    uint32_t opcode;     ///< firmware operation code
    const void *inbuf;   ///< request payload, or null
    uint32_t size_in;    ///< payload length; 0 without payload
    void *outbuf;        ///< reply buffer, or null
    uint32_t *size_out;  ///< capacity of outbuf; ends as capacity plus the bytes received
    int32_t result;      ///< firmware result; -1 before the call
    uint32_t client_pid; ///< the tool's pid for the route-table and port-status reads, else 0
    /// Bytes of the reply copied into outbuf, set by the channel. Unlike the size word it leaves
    /// out a first piece longer than a packet, which the channel counts but passes over.
    uint32_t copied = 0;
};

/// Sends one command to the device `logic_id` (0..15) and collects its reply. Returns 0 when
/// the exchange completed (the firmware's verdict is then in para->result), or a negative
/// errno-style code (-22) when the exchange itself failed. Both records live on the stack.
[[nodiscard]] int kopa_network_transmission_channel(uint32_t logic_id, network_channel_para *para);
