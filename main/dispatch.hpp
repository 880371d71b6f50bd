// The parse of one command line: shape checks, command lookup, device id, and the handler call.
#pragma once

#include <cstdint>

#include "cmdline/cmd.hpp"
#include "main/cmd_table.hpp"

inline constexpr int kArgcMax = 64;       ///< argc must stay below this
inline constexpr size_t kArgLenMax = 900; ///< longest accepted word

/// The whole parse of one run: shape, extension rows, audit, help, lookup, device id, then the
/// handler of the matched row, whose result is returned unchanged. 0 or a tool result code.
[[nodiscard]] int32_t parse_cmd(int argc, char **argv, cmd_parse_info *info);

/// Appends `count` records at the first empty row of g_cmd_list. 0, 0x3002 when they do not
/// fit, 0x3001 when the copy fails.
[[nodiscard]] int32_t insert_cmd_list(const cmd_record *records, int count);

/// Appends g_cmd_list_ext to g_cmd_list, once a process (0 when it is there already).
[[nodiscard]] int32_t insert_ext_cmd();

/// 0 when 2 <= argc < 64 (else 0x1002) and no word exceeds 900 characters (else 0x1007).
[[nodiscard]] int32_t len_valid(int argc, char **argv);

/// 0 for a help request ("-h" or "--help" as the only word), 1 otherwise.
[[nodiscard]] int is_help(int argc, char **argv);

/// "-i" gives type 0 and command position 3, "-a" type 1 and position 2; else 0x1001.
[[nodiscard]] int32_t get_cmd_type(int argc, char **argv, uint32_t *type, int *position);

/// 0 when record `row` is of the major type `type`, else 0x1006.
[[nodiscard]] int32_t cmd_attr_check(uint32_t type, const cmd_record *row);

/// Finds the first row whose name equals argv[position] and whose major type fits; fills
/// cmd_index, first_arg, argc and argv of `info`. 0 or 0x1003.
[[nodiscard]] int32_t major_cmd_parse(int argc, char **argv, uint32_t type, int position,
                                      cmd_parse_info *info);

/// Resolves the device id of a "-i" command line, in host mode or normal mode.
[[nodiscard]] int32_t cmd_dev_parse(int argc, char **argv, cmd_parse_info *info);

/// Checks the form of the device id argv[2] (at most 2 digits) and converts it.
[[nodiscard]] int32_t cmd_check_phy_id(int argc, char **argv, uint32_t *phy_id);

/// Normal mode: physical id to logical id through the device library, then the health check.
[[nodiscard]] int32_t tool_parse_dev(int argc, char **argv, cmd_parse_info *info);

/// Host mode: the id must lie in 0..15; both ids become 0.
[[nodiscard]] int32_t tool_parse_dev_para_for_host(int argc, char **argv, cmd_parse_info *info);
