// The parse context of one run, the calling contract of every command, and the descriptor that
// says everything the front-end needs to know of a command: its words, the word count of each
// operation, which operations change settings, the values the audit masks, and its help.
#pragma once

#include <cstdint>
#include <span>

/// One per run, zero-filled by the entry point and handed to every handler.
struct cmd_parse_info {
    uint32_t logic_id;    ///< logical device id (0 in host mode and for "-a")
    int32_t argc;         ///< the whole argument count of the run
    char **argv;          ///< the whole argument vector of the run
    int32_t first_arg;    ///< index in argv of the first argument after the command name
    int32_t cmd_index;    ///< row of the matched command record
    uint32_t phy_id;      ///< physical device id as typed after "-i" (0 in host mode)
    uint8_t host_mode;    ///< 1 when the last argument is "host" or the run is a help request
    uint32_t cmd_type;    ///< 0 for "-i", 1 for "-a"
    uint8_t reserved[64]; ///< zero, for handlers' use
};

inline constexpr uint32_t kCmdTypeOne = 0; ///< "-i": one device
inline constexpr uint32_t kCmdTypeAll = 1; ///< "-a": all devices

/// A command handler, and each operation of one: `argc` and `argv` are the words after the
/// command name (argv[0] is the operation word, "-g", "-s" ...). Returns 0 or a tool result
/// code; prints its results on standard output; the entry point prints the error text.
using CmdHandler = int32_t (*)(int argc, char **argv, cmd_parse_info *info);

/// The word count of an operation that checks its own words (it logs before it counts them).
inline constexpr int kOwnCount = -1;

/// One operation of a command.
struct CmdOp {
    const char *word;      ///< the operation word, compared whole
    int argc;              ///< exact count of words from the operation word on, or kOwnCount
    bool changes_settings; ///< takes the setting lock before it runs
    CmdHandler run;
    const char *argc_log = nullptr; ///< driver-log text of a wrong count; null: the command's
    /// Driver-log text that the handler writes after any failure of the operation, a count that
    /// the dispatcher refused included, with the result code and the logical id; null: none.
    const char *fail_log = nullptr;
};

/// Where a command writes the reason when it refuses an unknown operation word.
enum class RefusalLog : uint8_t {
    kNone,     ///< nowhere but the user's text
    kRunLog,   ///< a run-log PROMPT line (the text ends with its newline)
    kDriverLog ///< driver-log error lines: the text (when given), then the user's text without
               ///< its newline
};

struct CmdRefusal {
    RefusalLog channel;
    const char *log_text;  ///< for kRunLog and kDriverLog
    const char *user_text; ///< on standard error
};

/// A word whose value the audit masks: the word at `position` of the whole argument vector, or
/// anywhere (kMaskAnywhere).
struct CmdMask {
    const char *word;
    int position;
};
inline constexpr int kMaskAnywhere = -1;

/// Everything of one command but its code. Each command file defines its own.
struct CmdDesc {
    const char *major;       ///< "-i" (one device) or "-a" (all devices)
    const char *name;        ///< the command word, compared exactly
    const char *handler;     ///< the handler's name, under which the dispatcher logs
    const char *description; ///< one-line description
    const char *help;        ///< the usage block that help and parameter errors print
    std::span<const CmdOp> ops = {};
    CmdRefusal unknown_op{RefusalLog::kNone, nullptr, "Get unknown option!\n"};
    const char *argc_log = "err argc[%d]"; ///< driver-log text of a wrong or missing count
    /// The count is checked before the operation word (a command whose every operation takes
    /// the same count refuses a wrong count first).
    bool count_first = false;
    std::span<const CmdMask> masks = {};
};

/// Checks the operation word and the word count of `cmd` with the command's own texts and
/// codes, takes the setting lock for an operation that changes settings, and runs it.
[[nodiscard]] int32_t cmd_dispatch(const CmdDesc &cmd, int argc, char **argv, cmd_parse_info *info);
