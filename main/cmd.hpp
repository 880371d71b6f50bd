// The parse context of one run and the calling contract of every command handler.
#pragma once

#include <cstdint>

/// One per run, zero-filled by the entry point and handed to every handler.
struct cmd_parse_info {
    uint32_t logic_id;   ///< logical device id (0 in host mode and for "-a")
    int32_t argc;        ///< the whole argument count of the run
    char **argv;         ///< the whole argument vector of the run
    int32_t first_arg;   ///< index in argv of the first argument after the command name
    int32_t cmd_index;   ///< row of the matched command record
    uint32_t phy_id;     ///< physical device id as typed after "-i" (0 in host mode)
    uint8_t host_mode;   ///< 1 when the last argument is "host" or the run is a help request
    uint32_t cmd_type;   ///< 0 for "-i", 1 for "-a"
    uint8_t reserved[64];///< zero, for handlers' use
};

inline constexpr uint32_t kCmdTypeOne = 0; ///< "-i": one device
inline constexpr uint32_t kCmdTypeAll = 1; ///< "-a": all devices

/// A command handler: `argc` and `argv` are the words after the command name (argv[0] is the
/// operation word, "-g", "-s" ...). Returns 0 or a tool result code; prints its results on
/// standard output; the entry point prints the error text.
using CmdHandler = int32_t (*)(int argc, char **argv, cmd_parse_info *info);
