// The address-conflict rule shared by the address and route commands.
#pragma once

#include <cstdint>

/// Whether `address` (dotted quad) would clash on device `logic_id`: with the host-link address
/// of a device of its group (the device itself on a PCIe card), with the RoCE address of another
/// device of the group, or, under `netmask`, with the reserved host-link segment 192.168.1.0/24.
/// When the device count, the physical id or the card type cannot be read the answer is no.
[[nodiscard]] bool is_ipaddr_conflict(uint32_t logic_id, const char *address, const char *netmask);
