// The command table: one record per command word, the fixed rows and the extension rows.
#pragma once

#include <cstdint>

#include "main/cmd.hpp"

inline constexpr int kCmdListMax = 128;   ///< rows of g_cmd_list
inline constexpr int kCmdListExtNum = 11; ///< rows of g_cmd_list_ext
inline constexpr int kCmdFieldLen = 50;   ///< size of the three word fields of a record

/// One command: the words that select it, its handler, and the texts help prints.
struct cmd_record {
    char major_type[kCmdFieldLen]; ///< "-i" (one device) or "-a" (all devices)
    char dev_token[kCmdFieldLen];  ///< "devid" for "-i" records, empty for "-a"; help only
    char cmd_name[kCmdFieldLen];   ///< the command word, compared exactly
    CmdHandler handler;            ///< null marks the end of the table
    const char *description;       ///< one-line description
    const char *help;              ///< multi-line usage text
};

/// The command table: 28 fixed rows, then empty rows; the extension rows are appended at run
/// time by insert_ext_cmd().
extern cmd_record g_cmd_list[kCmdListMax];

/// The extension commands appended after the fixed rows.
extern const cmd_record g_cmd_list_ext[kCmdListExtNum];
