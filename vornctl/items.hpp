// The items vornctl knows: every setting that vorn_tool saves for recovery, in the order
// recovery replays them, with the form of its saved value and the size of the buffer recovery
// reads it into.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

/// The form of a saved value, or the kind of a list of saved lines.
enum class ValueKind : uint8_t {
    kIpv4,    ///< dotted quad
    kGateway, ///< dotted quad; the device answers its group's gateway and its holder
    kNumber,  ///< decimal digits
    kMac,     ///< XX:XX:XX:XX:XX:XX, either case
    kList8,   ///< eight numbers separated by ","
    kDscp,    ///< "dscp:tc" entries separated by ","
    kRoutes,  ///< lines route_address_A_netmask_M_<phy_id>=gateway_G
    kArp,     ///< lines arp_<logic_id>=dev ethN ip A mac M
    kIpRules, ///< lines ip_rule_<logic_id>=...
    kIpRoutes ///< lines ip_route_<logic_id>=...
};

struct ItemDef {
    const char *name; ///< the saved item (key "<name>_<phy_id>"), or the list's name
    uint32_t buffer;  ///< the recovery buffer of a value, bytes; 0 for a list
    ValueKind kind;
    const char *partner; ///< the item recovery replays only together with this one, or null
};

/// Every item, in replay order.
extern const std::span<const ItemDef> g_ctl_items;

/// The index in g_ctl_items of the item `name`; g_ctl_items.size() when there is none.
[[nodiscard]] size_t ctl_item_index(std::string_view name);

/// The most entries a saved DSCP list may hold (one per DSCP value).
inline constexpr size_t kCtlDscpEntriesMax = 64;
