// The walk over the saved route lines of one device, shared by the route, address and replay code.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/text.hpp"
#include "commands/setting.hpp"

/// What the walk does with each saved route of the device.
enum class RouteAction {
    kReplay = 1,            ///< add the route to the device again
    kDelete = 2,            ///< remove its line from the file
    kDelOutsideSegment = 3, ///< remove its line when its gateway is outside address/netmask
};

/// Walks the configuration file in one session under its exclusive lock and applies `action` to
/// every saved route of the device `dev` (its physical id picks the lines, its logical id the
/// device). The lines it removes leave the file in one replacement at the end. `address` and
/// `netmask` (network byte order) name the segment of kDelOutsideSegment and are ignored otherwise.
/// Returns 0, 12290 when the file path cannot be resolved, 12293 when the file cannot be opened,
/// locked or rewound, -ENOMEM for a malformed route line, or the first failing route's code.
[[nodiscard]] int32_t tool_read_vorn_conf_handle_action(DevRef dev, RouteAction action,
                                                        uint32_t address, uint32_t netmask);

/// One saved route line "route_address_A_netmask_M_<phy_id>=gateway_G", as the walk reads it.
struct SavedRouteLine {
    char address[kIpTextSize]; ///< destination, dotted quad
    char netmask[kIpTextSize];
    char gateway[kIpTextSize];
    uint32_t section; ///< the physical id the line belongs to
};

/// Whether the walk takes `piece` (a line of the file, or a 383-character piece of a longer one)
/// for a route line: not a comment, at least 3 characters, with "=", beginning with "route".
[[nodiscard]] bool tool_is_route_line(std::string_view piece);

/// Reads a route line (its newline may follow) into `route`. 0, or -ENOMEM when the line is not
/// exactly in the form the route command writes: the walk stops on such a line, whatever device
/// it names, since a deletion could not find it again by its key. Logs nothing.
[[nodiscard]] int32_t tool_parse_route_line(const char *line, SavedRouteLine *route);
