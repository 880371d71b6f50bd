// The order in which recovery replays the saved items of a device. The address comes first:
// the gateway and the routes need its segment.
#include "commands/replay.hpp"
#include "main/cmd.hpp"

namespace
{

constexpr ReplayItem kReplayItems[] = {
    {"tool_cfg_ip_recovery", tool_cfg_ip_recovery},
    {"tool_cfg_gateway_recovery", tool_cfg_gateway_recovery},
    {"tool_cfg_netdetect_recovery", tool_cfg_netdetect_recovery},
    {"tool_cfg_mtu_recovery", tool_cfg_mtu_recovery},
    {"tool_cfg_mac_addr_recovery", tool_cfg_mac_addr_recovery},
    {"tool_cfg_dscp_recovery", tool_cfg_dscp_recovery},
    {"tool_cfg_generic_recovery", tool_cfg_generic_recovery},
    {"tool_cfg_shaping_recovery", tool_cfg_shaping_recovery},
    {"tool_cfg_route_recovery", tool_cfg_route_recovery},
    {"tool_cfg_roce_port_recovery", tool_cfg_roce_port_recovery},
    {"tool_cfg_arp_recovery", tool_cfg_arp_recovery},
    {"tool_cfg_ip_rule_recovery", tool_cfg_ip_rule_recovery},
    {"tool_cfg_ip_route_recovery", tool_cfg_ip_route_recovery},
    {"tool_cfg_pfc_recovery", tool_cfg_pfc_recovery},
    {"tool_tc_cfg_recovery", tool_tc_cfg_recovery},
    {"tool_cfg_prio_tc_recovery", tool_cfg_prio_tc_recovery},
    {"tool_cfg_fec_recovery", tool_cfg_fec_recovery},
    {"tool_cfg_gratuitous_arp_recovery", tool_cfg_gratuitous_arp_recovery},
};

} // namespace

const std::span<const ReplayItem> g_replay_items = kReplayItems;
