// Steps the diagnostics and statistics commands share: the refusal of a device read, the words
// of the port's speed, duplex and FEC mode, rates in their units, bounded numbers, the clock and
// the progress lines of the tests that run for a while.
#pragma once

#include <cstdint>

#include "commands/cmd_common.hpp"

/// Logs "<what> fail ret[<ret>] logic_id[<id>]" at error level under `where` and returns the
/// device-failure code (0x4001, "Command execute failed!").
[[nodiscard]] int32_t diag_device_failed(const CallSite &where, const char *what, int ret,
                                         uint32_t logic_id);

/// Refuses a typed value: "The value \"<value>\" of <keyword> is invalid, expected
/// <expected>.\n" on standard error and in the driver log; returns 0x2001 (the front-end adds
/// "Get invalid parameters!" and the usage).
[[nodiscard]] int32_t diag_bad_value(const CallSite &where, const char *value, const char *keyword,
                                     const char *expected);

/// Reads a decimal number of digits only, without a leading zero, within [min, max].
[[nodiscard]] bool diag_read_number(const char *text, uint32_t min, uint32_t max, uint32_t *out);

/// "half", "full" or "unknown(<n>)" into `buf`.
const char *diag_duplex_text(uint32_t duplex, char *buf, uint32_t size);
/// "off", "rs-fec", "base-r fec" or "unknown(<n>)" into `buf`.
const char *diag_fec_text(uint32_t fec, char *buf, uint32_t size);
/// "<n> Mbit/s", or "unknown" for a port that is down (0).
const char *diag_speed_text(uint32_t mbps, char *buf, uint32_t size);

/// Mbit/s as Gbit/s with three decimals ("185.123").
const char *diag_gbps_text(uint64_t mbps, char *buf, uint32_t size);

/// Microseconds of the monotonic clock.
[[nodiscard]] uint64_t diag_now_us();
/// Waits `ms` milliseconds (a signal does not cut the wait short).
void diag_sleep_ms(uint32_t ms);

/// Prints one line of a running test on standard output and flushes it, so that a long run
/// shows its progress as it goes.
void diag_progress(const char *format, ...) __attribute__((format(printf, 1, 2)));
