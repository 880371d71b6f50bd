// The replay of saved settings: one routine per saved item, each reading its keys of the
// device's physical id and setting them again through the item's own setting routine. An
// absent key is success: there is nothing to replay.
#pragma once

#include <cstdint>
#include <span>

#include "commands/setting.hpp"

/// One saved item and its replay.
struct ReplayItem {
    const char *name;              ///< the replay routine's name, for the log
    int32_t (*replay)(DevRef dev); ///< 0 when replayed or absent, else the item's code
};

/// The saved items in the order recovery replays them.
extern const std::span<const ReplayItem> g_replay_items;

int32_t tool_cfg_ip_recovery(DevRef dev);
int32_t tool_cfg_gateway_recovery(DevRef dev);
int32_t tool_cfg_netdetect_recovery(DevRef dev);
int32_t tool_cfg_mtu_recovery(DevRef dev);
int32_t tool_cfg_mac_addr_recovery(DevRef dev);
int32_t tool_cfg_route_recovery(DevRef dev);
int32_t tool_cfg_roce_port_recovery(DevRef dev);
