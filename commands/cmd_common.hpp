// Steps that many command handlers share: the refusal of a wrong word count or an unknown word,
// the read of a saved item for replay and the save of one value. Each logs under the name and
// line of its caller, as the line written in the caller itself would.
#pragma once

#include <cstddef>
#include <cstdint>
#include <source_location>

/// Copies the bare function name out of `signature` into `out` (cut to `size` - 1 characters):
/// "int32_t {anonymous}::tool_x(int, char**)" gives "tool_x"; a bare name is kept as it is.
void cmd_bare_func_name(const char *signature, char *out, size_t size);

/// Refuses a wrong number of words: driver-log error "err argc[<argc>]". Returns kErrArgCount.
[[nodiscard]] int32_t cmd_err_argc(int argc,
                                   std::source_location where = std::source_location::current());

/// Refuses an unknown word: the run-log PROMPT line `log_text` (none when null; the text ends
/// with its own newline), then `user_text` on standard error. Returns kErrUnknownOption.
[[nodiscard]] int32_t cmd_err_unknown_option(
    const char *log_text, const char *user_text,
    std::source_location where = std::source_location::current());

/// Refuses an unknown word on the driver log: error lines `drv_text` and `user_text` without
/// its final newline, then `user_text` on standard error. Returns kErrUnknownOption.
[[nodiscard]] int32_t cmd_err_unknown_option_drv(
    const char *drv_text, const char *user_text,
    std::source_location where = std::source_location::current());

/// Reads the saved `item` of device `phy_id` into `value` for replay. True when it was read;
/// false, after the driver-log debug line "<what> do not need recover cfg [<code>]", when it
/// is absent or cannot be read: replay then has nothing to do.
[[nodiscard]] bool cmd_replay_read(uint32_t phy_id, const char *item, const char *what,
                                   char *value, uint32_t size,
                                   std::source_location where = std::source_location::current());

/// Saves `value` as the `item` of device `phy_id`. On failure: driver-log error
/// "write cfg error[<code>], phy_id[<id>]", then `user_text` on standard error. Returns the
/// store's code (0 when saved).
[[nodiscard]] int32_t cmd_save_item(uint32_t phy_id, const char *item, const char *value,
                                    const char *user_text,
                                    std::source_location where = std::source_location::current());
