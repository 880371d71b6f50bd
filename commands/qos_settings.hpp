// The setting routines and value readers of the QoS commands -dscp_to_tc, -shaping, -pfc,
// -tc_cfg and -prio_tc, shared by their handlers and by the replay of saved settings.
//
// Numbers are typed in decimal digits only, with no more digits than their largest value (a
// leading zero can make one too long), so that nothing wraps in conversion and what is saved
// fits the buffer that replay reads it back into. Lists are eight numbers, one per priority or
// traffic class 0..7, separated by "," without blanks, and are saved in that form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "commands/cmd_common.hpp"
#include "commands/setting.hpp"

inline constexpr uint32_t kQosClasses = 8;      ///< priorities, and traffic classes, of a port
inline constexpr uint32_t kTcMax = 7;           ///< highest traffic class
inline constexpr uint32_t kBwLimitMin = 1;      ///< smallest port bandwidth limit, Mbit/s
inline constexpr uint32_t kBwLimitMax = 400000; ///< largest port bandwidth limit, Mbit/s
inline constexpr uint32_t kTcModeStrict = 0;    ///< a traffic class served by strict priority
inline constexpr uint32_t kTcModeEts = 1;       ///< a traffic class given a share of the bandwidth

/// Eight values, one per priority or traffic class.
using QosList = uint32_t[kQosClasses];

/// Reads the decimal text `text` of at most `max_len` digits and value at most `max` into
/// `value`. kErrParamInvalid for an empty word or a character that is not a decimal digit;
/// `range_code` for a longer word, a leading zero or a larger value.
[[nodiscard]] int32_t qos_read_number(std::string_view text, size_t max_len, uint32_t max,
                                      int32_t range_code, uint32_t *value);

/// Reads a list of exactly eight numbers separated by "," (each as qos_read_number reads it)
/// into `values`. kErrParamInvalid for a list of another shape (blanks, empty entries, another
/// count), or the first entry's own refusal.
[[nodiscard]] int32_t qos_read_list(std::string_view text, size_t max_len, uint32_t max,
                                    int32_t range_code, QosList &values);

/// Prints `values` as the list qos_read_list reads ("0,1,2,3,4,5,6,7"). False when it does not
/// fit `size` bytes.
[[nodiscard]] bool qos_format_list(const QosList &values, char *out, size_t size);

/// One saved line of a device: its item name and value.
struct QosSaved {
    const char *item;
    const char *value;
};

/// Saves the `items` of device `phy_id` in one change of the configuration file: all of them or
/// none. On failure the driver-log error "write cfg error[<code>], phy_id[<id>]", then
/// `user_text` on standard error. Returns the store's code (0 when saved).
[[nodiscard]] int32_t qos_save_items(const CallSite &where, uint32_t phy_id,
                                     std::span<const QosSaved> items, const char *user_text);

/// Reports a save that failed with `ret` as qos_save_items does, and returns `ret`.
[[nodiscard]] int32_t qos_save_failed(const CallSite &where, uint32_t phy_id, int32_t ret,
                                      const char *user_text);

inline constexpr uint32_t kDscpValues = 64;    ///< DSCP values 0..63
inline constexpr uint8_t kDscpNotSaved = 0xFF; ///< a DSCP value the saved list does not name

/// Reads a saved DSCP list ("10:3,46:5": "dscp:tc" entries, each DSCP value at most once) into
/// `tc`, kDscpNotSaved where the list names no class. 0, or the refusal of the first entry that
/// does not read (0x2001, 0x200A, 0x200B).
[[nodiscard]] int32_t qos_read_dscp_list(std::string_view text, uint8_t (&tc)[kDscpValues]);

/// Checks a bandwidth limit text (1..400000 Mbit/s, at most 6 digits) and sets it as the
/// port's shaper. Saves nothing. 0, 0x2001, 0x200C or 0x4001.
[[nodiscard]] int32_t tool_port_shaping_set(DevRef dev, const char *text, SetMode mode);

/// Checks a PFC list (0 or 1 for each priority, such as "0,0,0,1,0,0,0,0") and enables PFC on
/// the priorities marked 1. Saves nothing. 0, 0x2001 or 0x4001.
[[nodiscard]] int32_t tool_set_pfc(DevRef dev, const char *text, SetMode mode);

/// Checks a priority list (the traffic class 0..7 of each priority, such as "0,1,2,3,4,5,6,7")
/// and sets it as the port's priority map. Saves nothing. 0, 0x2001, 0x200B or 0x4001.
[[nodiscard]] int32_t tool_set_prio_tc_info(DevRef dev, const char *text, SetMode mode);

/// Checks the bandwidth list (percent 0..100 of each traffic class) and the mode list (0 strict,
/// 1 weighted) together and sets both. A strict class takes 0 percent, and the weighted classes,
/// when there are any, add up to 100; a list breaking these rules is refused with its own
/// message on standard error and 0x2007. Saves nothing. 0, 0x2001, 0x2007 or 0x4001.
[[nodiscard]] int32_t tool_set_tc_cfg(DevRef dev, const char *bw_text, const char *mode_text,
                                      SetMode mode);
