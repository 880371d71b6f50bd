// The user-facing texts of result codes, the parameter lists of commands, and the help output.
#pragma once

#include <cstdint>

#include "cmdline/cmd.hpp"

/// Prints the text of a command-line shape error (class 0x1000) on standard error.
void uda_handle_major_err(int32_t code);

/// Prints the text of a parameter error (0x2001..0x200E) on standard error, with the usage of
/// the command in `info` where the code asks for it; other codes of the class go on to
/// uda_handle_tls_param_err.
void uda_handle_param_err(int32_t code, const cmd_parse_info *info);

/// Prints the text of a TLS parameter error; every path ends with "Cmd execute failed!".
void uda_handle_tls_param_err(int32_t code, const cmd_parse_info *info);

/// Prints the text of a system error (class 0x3000) on standard error.
void uda_handle_tool_sys_err(int32_t code);

/// Prints the text of a device or device-library error (class 0x4000) on standard error.
void uda_handle_kopa_err(int32_t code);

/// Prints "[ vorn_tool <major> dev_id <name> ] needs the following parameters:" and the help
/// text of row `cmd_index` on standard error.
void uda_cmd_pram_list_print(int32_t cmd_index);

/// "The total count of input parameters is wrong!", then the parameter list.
void uda_param_cmd_count_err_print(int32_t cmd_index);

/// "The value of <name> you input is out of the valid range!", then the parameter list.
void uda_param_cmd_err_tips_print(const char *name, int32_t cmd_index);

/// Prints the help of every command of the table, in table order, on standard output.
void uda_help_cmd_print();

/// Prints the user's text of a failed run's result by its class (0x1000 .. 0x4000; any other
/// class: "Cmd execute failed!"), as the entry point does before it exits.
void uda_handle_result(int32_t code, const cmd_parse_info *info);

/// The end of a command line's run: its run-log line, and the user's text of a failure
/// (uda_handle_result). Returns `code`.
int32_t finish_cmd_line(int32_t code, const cmd_parse_info *info);
