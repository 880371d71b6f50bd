// Device identity and health: the questions about a device that the library answers directly.
#pragma once

#include <cstdint>

#include "platform/kopa_platform.h"

/// 0 when the device is healthy or has a minor alarm; 0x4004 when the health cannot be read
/// or is a major or critical alarm; 0x4005 when the device is gone.
[[nodiscard]] int32_t tool_check_dev_health(uint32_t logic_id);

/// Whether the device `logic_id` sits on a PCIe accelerator card (board id 0x0100..0x01FF)
/// rather than a server board. 0 or 0x4001 when the board id cannot be read.
[[nodiscard]] int32_t tool_is_pcie_card(uint32_t logic_id, bool *is_pcie);

/// The devices of the host, in list order.
struct dev_list_info {
    uint32_t count;
    uint32_t logic_id[KOPA_MAX_DEVICES];
    uint32_t phy_id[KOPA_MAX_DEVICES];
};

/// Fills `list` from kopa_get_device_count, kopa_list_device and kopa_get_phyid_from_logicid.
/// 0, or 0x4001 when the library refuses.
[[nodiscard]] int32_t tool_get_dev_list_info(dev_list_info *list);
