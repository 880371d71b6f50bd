// The run log: the tool's audit trail, a ring file with one ".old" generation.
#pragma once

#include "base/identity.hpp"

/// Writes one run-log line. `format` begins with a 13-character class-and-level word
/// ("PROMPT MINOR " or "CONFIG MAJOR ") followed by " %s %s %s:%d >>> "; the time stamp is
/// inserted right after the user name. Never fails towards the caller.
void VornPrintLog(const char *format, ...) __attribute__((format(printf, 1, 2)));

/// Run-log line of an event of the run; the text ends with its own newline.
#define RUN_LOG_PROMPT(fmt, ...)                                                                   \
    VornPrintLog("PROMPT MINOR %s %s %s:%d >>> " fmt, vorn_get_g_usr_name(), vorn_get_g_usr_ip(),  \
                 __FILE_NAME__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

/// Run-log line that opens a configuration change on a device.
#define RUN_LOG_CONFIG(fmt, ...)                                                                   \
    VornPrintLog("CONFIG MAJOR %s %s %s:%d >>> " fmt, vorn_get_g_usr_name(), vorn_get_g_usr_ip(),  \
                 __FILE_NAME__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
