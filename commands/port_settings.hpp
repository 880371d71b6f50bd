// The setting routines and value checkers of the port commands -mac, -mtu and -udp, shared by
// their handlers and by the replay of saved settings.
#pragma once

#include <cstdint>

#include "commands/setting.hpp"

inline constexpr uint32_t kMtuMin = 68;   ///< smallest MTU the port takes
inline constexpr uint32_t kMtuMax = 9702; ///< largest MTU the port takes

/// Number of entries of the reserved MAC address list.
inline constexpr int kMacFilterCount = 18;
/// The reserved MAC addresses, compared case-sensitively on their first 17 characters.
extern const char *const g_mac_filter_list[kMacFilterCount];

/// Converts the 17-character text "XX:XX:XX:XX:XX:XX" into 6 bytes, first octet first.
/// 0, or 0x2006 for a misplaced separator, a non-hexadecimal digit or a short buffer.
[[nodiscard]] int32_t tool_mac_str2char(const char *text, uint8_t *mac_out, uint32_t size);

/// 0 when the address text may be configured; 0x2006 when it is reserved: the IEEE 802.1
/// block (01:80:C2 / 01:80:c2), a first octet whose low digit is "1", or a listed address.
[[nodiscard]] int32_t tool_mac_filter_check(const char *text);

/// Checks a MAC address text (17 characters, hexadecimal pairs, not reserved) and sets it on
/// the device. Saves nothing. 0, 0x2006 or 0x4001.
[[nodiscard]] int32_t tool_set_mac(DevRef dev, const char *text, SetMode mode);

/// Checks an MTU text (digits only, at most 4 of them: the saved value must fit its replay
/// buffer, and no text then wraps in conversion) and converts it. 0, 8193 for a missing or
/// malformed text, 8206 when it is too long or its digits exceed the maximum. The range
/// 68..9702 is checked by tool_set_mtu.
[[nodiscard]] int32_t tool_check_mtu(const char *text, uint32_t *mtu);

/// Checks the MTU text, its range, and sets it on the device's port. Saves nothing.
/// 0, 8193, 8206 or 16385.
[[nodiscard]] int32_t tool_set_mtu(DevRef dev, const char *text, SetMode mode);

/// Checks the RoCE UDP port text (4 or 5 decimal digits; "Input port num is invalid.\n" on
/// standard output otherwise) and sets it on the device. Saves nothing. 0, 12290 or 16385.
[[nodiscard]] int32_t tool_set_roce_port(DevRef dev, const char *text, SetMode mode);
