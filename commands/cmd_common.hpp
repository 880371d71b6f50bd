// Steps that many command handlers share: the refusal of a wrong word count or an unknown word,
// the copy of an address word, the read of a saved item for replay and the save of one value. Each
// logs under the function, file and line of its caller, as the line written in the caller itself
// would.
#pragma once

#include <cstdint>

#include "base/result.hpp"
#include "base/text.hpp"
#include "config/store.hpp"
#include "log/driver_log.hpp"

/// Where a shared step was called from.
struct CallSite {
    const char *func; ///< the caller's __func__
    const char *file; ///< the caller's source file name, without its directory
    int line;
};

/// The call site of the line it stands on.
#define CMD_HERE (CallSite{__func__, __FILE_NAME__, __LINE__})

/// Makes standard output line-buffered for a command whose lines come one by one over a long run
/// and are read as they come (through a pipe, as into the journal, they would otherwise wait
/// for the run's end). Call before the command's first output.
void cmd_stdout_by_line();

/// Refuses a wrong number of words: driver-log error "err argc[<argc>]". Returns kErrArgCount.
[[nodiscard]] int32_t cmd_err_argc(const CallSite &where, int argc);

/// Refuses an unknown word: the run-log PROMPT line `log_text` (none when null; the text ends
/// with its own newline), then `user_text` on standard error. Returns kErrUnknownOption.
[[nodiscard]] int32_t cmd_err_unknown_option(const CallSite &where, const char *log_text,
                                             const char *user_text);

/// Refuses an unknown word on the driver log: error lines `drv_text` and `user_text` without
/// its final newline, then `user_text` on standard error. Returns kErrUnknownOption.
[[nodiscard]] int32_t cmd_err_unknown_option_drv(const CallSite &where, const char *drv_text,
                                                 const char *user_text);

/// Reads the saved `item` of device `phy_id` from the view `conf` into `value` for replay. True
/// when it was read; false, after the driver-log debug line "<what> do not need recover cfg
/// [<code>]", when it is absent or cannot be read: replay then has nothing to do.
[[nodiscard]] bool cmd_replay_read(const CallSite &where, const ConfView &conf, uint32_t phy_id,
                                   const char *item, const char *what, char *value, uint32_t size);

/// Copies the dotted-quad word `src` into `dst` for the value named `name` ("address",
/// "netmask", "gateway"). A word of 20 characters or more is refused with kErrSysCopy and the
/// driver-log line "memcpy_s <name> fail[34], dlen[20], slen[<len>]" followed by `log_tail`
/// (may be empty), repeated to the run log when `run_log` is set.
[[nodiscard]] int32_t cmd_copy_ip_word(const CallSite &where, char (&dst)[kIpTextSize],
                                       const char *src, const char *name, bool run_log,
                                       const char *log_tail = "");

/// The driver-log text of a failed save that most commands share: the store's code, then the
/// physical id.
inline constexpr const char *kSaveFailedLog = "write cfg error[%d], phy_id[%u]";

/// Saves `value` as the `item` of device `phy_id`. On failure: the driver-log error `log_text`
/// (the command's own, formatted with the store's code and the physical id), then `user_text`
/// on standard error. Returns the store's code (0 when saved).
[[nodiscard]] int32_t cmd_save_item(const CallSite &where, uint32_t phy_id, const char *item,
                                    const char *value, const char *user_text,
                                    const char *log_text = kSaveFailedLog);

/// A set whose exchange broke (the channel or the reply failed, kErrnoInval) may have reached
/// the device before its reply was lost. `held()` reads the item back and says whether the device
/// holds the requested value: then the set took effect, and device and saved file must agree on
/// it. A firmware refusal is never read back.
template <typename Held> [[nodiscard]] bool cmd_set_took_effect(int dev_ret, Held &&held)
{
    if (dev_ret != kErrnoInval || !held())
        return false;
    DRV_WARN("the reply of the set broke, but the device holds the requested value");
    return true;
}

struct SavedItem;
struct cmd_parse_info;
struct DevRef;

/// Replays the saved value of the single `item` of `dev` through its set: false from
/// cmd_replay_read (`what` naming it) is nothing to do; else the driver-log debug line `found`,
/// the set in recovery mode, and on its failure the driver-log error `fail_format` (the code and
/// the logical id; none when null). 0 or the set's code.
[[nodiscard]] int32_t cmd_replay_value(const CallSite &where, const ConfView &conf,
                                       const SavedItem &item, DevRef dev, const char *what,
                                       const char *found, const char *fail_format);

/// A "-s <keyword> <value>" operation that checks, sets and saves one item, with the texts of its
/// command.
struct ItemSetCmd {
    const char *keyword; ///< the one keyword ("size")
    const SavedItem *item;
    /// An unknown keyword: the refusal's log text ("invalid option\n") and the user's text. The
    /// log text goes to the run log; with `drv_refusal` set, to the driver log without its
    /// newline.
    const char *refusal_log;
    const char *refusal_text;
    bool drv_refusal;
    const char *start_what; ///< run log "start to set <start_what> of logic_id[<id>]"
    const char *fail_what;  ///< driver log "set <fail_what> failed, logic_id[<id>]"
    const char *save_fail;  ///< standard error when the save fails
};

/// Runs `cmd` on argv ("-s", keyword, value): refuses another keyword, opens the change in the
/// run log, checks and sets the value through its item, and saves it as typed. The device keeps
/// the value even when it cannot be saved.
[[nodiscard]] int32_t cmd_set_item(const CallSite &where, const ItemSetCmd &cmd, char **argv,
                                   cmd_parse_info *info);
