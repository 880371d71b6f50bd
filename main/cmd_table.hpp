// The command table: one row per command, the fixed rows and the extension rows.
#pragma once

#include <cstdint>

#include "main/cmd.hpp"

inline constexpr int kCmdListMax = 128;   ///< rows of g_cmd_list
inline constexpr int kCmdListExtNum = 11; ///< rows of g_cmd_list_ext

/// One row of the table; an empty row (no command) marks the end of the table.
struct cmd_record {
    const CmdDesc *cmd;
    [[nodiscard]] bool empty() const { return cmd == nullptr; }
    /// "devid" for a one-device command, empty for "-a"; shown in help only.
    [[nodiscard]] const char *dev_token() const;
};

/// The command table: 28 fixed rows, then empty rows; the extension rows are appended at run
/// time by insert_ext_cmd().
extern cmd_record g_cmd_list[kCmdListMax];

/// The extension commands appended after the fixed rows.
extern const cmd_record g_cmd_list_ext[kCmdListExtNum];
