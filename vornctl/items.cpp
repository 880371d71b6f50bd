// The table of saved items, in replay order (commands/replay_table.cpp), with the recovery
// buffer each value is read back into by its replay routine.
#include "vornctl/items.hpp"

namespace
{

constexpr ItemDef kItems[] = {
    {"address", 20, ValueKind::kIpv4, "netmask"},
    {"netmask", 20, ValueKind::kIpv4, "address"},
    {"gateway", 20, ValueKind::kGateway, nullptr},
    {"netdetect", 20, ValueKind::kIpv4, nullptr},
    {"mtu", 5, ValueKind::kNumber, nullptr},
    {"mac_addr", 18, ValueKind::kMac, nullptr},
    {"dscp_tc", 384, ValueKind::kDscp, nullptr},
    {"static_speed", 7, ValueKind::kNumber, nullptr},
    {"auto_adapt", 4, ValueKind::kNumber, nullptr},
    {"bw_limit", 7, ValueKind::kNumber, nullptr},
    {"routes", 0, ValueKind::kRoutes, nullptr},
    {"roce_port", 6, ValueKind::kNumber, nullptr},
    {"arp", 0, ValueKind::kArp, nullptr},
    {"ip_rules", 0, ValueKind::kIpRules, nullptr},
    {"ip_routes", 0, ValueKind::kIpRoutes, nullptr},
    {"bitmap", 16, ValueKind::kList8, nullptr},
    {"tc_bw", 384, ValueKind::kList8, "tc_mode"},
    {"tc_mode", 384, ValueKind::kList8, "tc_bw"},
    {"prio_tc", 16, ValueKind::kList8, nullptr},
    {"encoding", 5, ValueKind::kNumber, nullptr},
    {"send_arp_period", 6, ValueKind::kNumber, "send_arp_status"},
    {"send_arp_status", 6, ValueKind::kNumber, "send_arp_period"},
};

} // namespace

const std::span<const ItemDef> g_ctl_items = kItems;

size_t ctl_item_index(std::string_view name)
{
    for (size_t i = 0; i < g_ctl_items.size(); ++i) {
        if (name == g_ctl_items[i].name)
            return i;
    }
    return g_ctl_items.size();
}
