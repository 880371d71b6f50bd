// The saved command lines of a device (ARP entries, policy rules and routes) read back into the
// records their replay sends, for readers that check or compare the lines without replaying them.
#pragma once

#include <cstdint>

#include "device/ops.hpp"

/// Reads the value of a saved ARP line "arp_<id>=dev ethN ip A mac M" (keywords in any order)
/// with the checkers of its replay. 0, or 0x2001 when they refuse it.
[[nodiscard]] int32_t tool_saved_arp_record(const char *line, kopa_arp_record *entry);

/// Reads the value of a saved policy rule "ip_rule_<id>=dir D ip A ip_mask N table T". 0, or
/// 0x2001 when the checkers refuse it.
[[nodiscard]] int32_t tool_saved_ip_rule_record(const char *line, kopa_ip_rule_record *rule);

/// Reads the value of a saved policy route "ip_route_<id>=ip A ip_mask N via G dev ethN table
/// T". 0, or 0x2001 when the checkers refuse it.
[[nodiscard]] int32_t tool_saved_ip_route_record(const char *line, kopa_ip_route_record *route);
