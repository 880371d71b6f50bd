// The command table: one row per command, the fixed rows and the extension rows, in the order
// help lists them. Each command's words, operations and help live in its own file (commands/,
// and tls/ for -tls); the rows are named once, here.
#pragma once

#include <cstdint>

#include "cmdline/cmd.hpp"

/// The fixed rows of the table, in order.
#define VORN_FIXED_COMMANDS(X)                                                                     \
    X(kIpCmd)                                                                                      \
    X(kGatewayCmd)                                                                                 \
    X(kNetdetectCmd)                                                                               \
    X(kLldpCmd)                                                                                    \
    X(kMacCmd)                                                                                     \
    X(kCfgCmd)                                                                                     \
    X(kLinkCmd)                                                                                    \
    X(kDscpCmd)                                                                                    \
    X(kShapingCmd)                                                                                 \
    X(kMtuCmd)                                                                                     \
    X(kNetHealthCmd)                                                                               \
    X(kArpCmd)                                                                                     \
    X(kRouteCmd)                                                                                   \
    X(kPciCmd)                                                                                     \
    X(kContextCmd)                                                                                 \
    X(kRegCmd)                                                                                     \
    X(kOpticalCmd)                                                                                 \
    X(kStatCmd)                                                                                    \
    X(kCfgAllCmd)                                                                                  \
    X(kTlsCmd)                                                                                     \
    X(kVersionCmd)                                                                                 \
    X(kVnicCmd)                                                                                    \
    X(kProcessCmd)                                                                                 \
    X(kUdpCmd)                                                                                     \
    X(kBandwidthCmd)                                                                               \
    X(kStatusCmd)                                                                                  \
    X(kGenericCmd)                                                                                 \
    X(kEthTestCmd)

/// The extension rows, appended after the fixed rows at run time, in order.
#define VORN_EXT_COMMANDS(X)                                                                       \
    X(kRoceTestCmd)                                                                                \
    X(kSpeedCmd)                                                                                   \
    X(kDuplexCmd)                                                                                  \
    X(kBackpressureCmd)                                                                            \
    X(kFecCmd)                                                                                     \
    X(kPfcCmd)                                                                                     \
    X(kTcCfgCmd)                                                                                   \
    X(kCurTcBufCmd)                                                                                \
    X(kPrioTcCmd)                                                                                  \
    X(kPingCmd)                                                                                    \
    X(kSendArpCmd)

// Each descriptor is defined by its command's file.
#define VORN_DECLARE_COMMAND(name) extern const CmdDesc name;
VORN_FIXED_COMMANDS(VORN_DECLARE_COMMAND)
VORN_EXT_COMMANDS(VORN_DECLARE_COMMAND)
#undef VORN_DECLARE_COMMAND

#define VORN_COUNT_COMMAND(name) +1
inline constexpr int kCmdListMax = 128; ///< rows of g_cmd_list
inline constexpr int kCmdFixedNum = 0 VORN_FIXED_COMMANDS(VORN_COUNT_COMMAND); ///< fixed rows
inline constexpr int kCmdListExtNum = 0 VORN_EXT_COMMANDS(VORN_COUNT_COMMAND); ///< g_cmd_list_ext
#undef VORN_COUNT_COMMAND
/// Every row of the whole table, once the extension rows are appended.
inline constexpr int kCmdCount = kCmdFixedNum + kCmdListExtNum;

/// One row of the table; an empty row (no command) marks the end of the table.
struct cmd_record {
    const CmdDesc *cmd;
    [[nodiscard]] bool empty() const { return cmd == nullptr; }
    /// "devid" for a one-device command, empty for "-a"; shown in help only.
    [[nodiscard]] const char *dev_token() const;
};

/// The command table: the fixed rows, then empty rows; the extension rows are appended at run
/// time by insert_ext_cmd().
extern cmd_record g_cmd_list[kCmdListMax];

/// The extension commands appended after the fixed rows.
extern const cmd_record g_cmd_list_ext[kCmdListExtNum];
