// Argument checkers shared by the command handlers: numbers, IPv4 texts, MAC texts, network
// segments, and the keyword-to-checker table for "key value" pairs. None prints to the user
// unless its description says so; failures are written to the driver log.
#pragma once

#include <cstdint>

// Round-trip checkers: the text is scanned, printed back with the same format and accepted only
// when the two agree byte for byte, then range-checked. 0 or 0x2001.
[[nodiscard]] int32_t tool_check_ip(const char *text);          ///< "%d.%d.%d.%d", 0..255 each
[[nodiscard]] int32_t tool_check_ip_mask_bit(const char *text); ///< "%d", 0..32
[[nodiscard]] int32_t tool_check_dev(const char *text);         ///< "eth%d", 0..7
[[nodiscard]] int32_t tool_check_table(const char *text);       ///< "%d", 0..255

// Other checkers, 0 or 0x2001.
[[nodiscard]] int32_t tool_check_mac(const char *text);      ///< 17 chars, hex pairs and ':'
[[nodiscard]] int32_t tool_check_dir(const char *text);      ///< "from" or "to"
[[nodiscard]] int32_t tool_check_num(const char *text);      ///< digits only (empty passes)
[[nodiscard]] int32_t tool_check_num_iter(const char *text); ///< digits, 5..20000
[[nodiscard]] int32_t tool_check_vfe(const char *text);      ///< "vfe_%d", 0..7, no round trip

/// 0 when each of the first `length` bytes is a decimal digit, else -22.
[[nodiscard]] int check_str_is_num(const char *text, uint32_t length);

/// Reads at most the first 8 characters as decimal digits (not validated here) and returns
/// `err_code` as soon as the running value exceeds `max`; otherwise 0.
[[nodiscard]] int32_t tool_para_overflow_check(const char *text, uint32_t max, int32_t err_code);

/// Dotted IPv4 text to a 32-bit address in network byte order. 0x3002 for a null argument,
/// 0x2007 for an unparsable text.
[[nodiscard]] int32_t tool_inet_pton_ipv4_address(const char *text, uint32_t *address);

/// Prints "%u.%u.%u.%u" from the lowest byte of `address` to the highest (a network-order
/// address prints in its usual order). 0x3002 for a null buffer, 0x3001 when it does not fit.
[[nodiscard]] int32_t tool_ipv4_int_to_str(uint32_t address, char *buf, uint32_t size);

/// Converts ip, gateway and netmask; an invalid ip or gateway prints "The IP address is
/// invalid!\n", an invalid netmask "The netmask is invalid!\n" on standard error (0x2007).
/// 0x2009 when ip and gateway differ on a bit set in the netmask.
[[nodiscard]] int32_t tool_check_ip_net_segment(const char *ip, const char *gateway,
                                                const char *netmask);

/// Checks `value` with the checker of `keyword` in the parameter check table; 0x2001 for an
/// unknown keyword.
[[nodiscard]] int32_t tool_check_param(const char *keyword, const char *value);

/// Finds `keyword` at argv[0], argv[2], ... (never as the last word), copies the next word into
/// the caller's zeroed `out` and checks it with tool_check_param. 0 or 0x2001.
[[nodiscard]] int32_t tool_get_param(int argc, char **argv, const char *keyword, char *out,
                                     uint32_t out_size);

/// "0x"/"0X" hexadecimal or decimal text to a non-negative 64-bit value; -1 for a null text or
/// overflow, a negative value for an invalid character. "" and "0x" give 0.
[[nodiscard]] int str_to_off_t(const char *text, int64_t *value);
