// Bounded text helpers: every copy and format names its destination size and fails rather
// than cut.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

/// Size of a dotted-quad text buffer: 19 characters and the terminator.
inline constexpr uint32_t kIpTextSize = 20;

/// Copies `src` with its terminator into `dst` of `size` bytes. False, with `dst` emptied,
/// when it does not fit.
[[nodiscard]] inline bool copy_text(char *dst, size_t size, const char *src)
{
    const size_t len = strnlen(src, size);
    if (len >= size) {
        if (size > 0)
            dst[0] = '\0';
        return false;
    }
    memcpy(dst, src, len + 1);
    return true;
}

template <size_t N> [[nodiscard]] bool copy_text(char (&dst)[N], const char *src)
{
    return copy_text(dst, N, src);
}

/// snprintf into `dst` of `size` bytes; false when the text did not fit or could not be formatted.
[[nodiscard]] inline bool format_text(char *dst, size_t size, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

inline bool format_text(char *dst, size_t size, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int n = vsnprintf(dst, size, format, args);
    va_end(args);
    return n >= 0 && static_cast<size_t>(n) < size;
}

/// Length of a MAC address text "XX:XX:XX:XX:XX:XX".
inline constexpr size_t kMacTextLen = 17;

/// The value of a hexadecimal digit of either case, or -1.
[[nodiscard]] constexpr int hex_digit_value(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

/// Reads the first 17 characters of `text` as a MAC address: ':' at every position p with
/// p % 3 == 2, a hexadecimal digit at every other. Returns -1 when all are in place, with the 6
/// bytes (first octet first) in `mac` when it is given; else the first position that is not. A
/// shorter text fails at its terminator.
[[nodiscard]] constexpr int mac_text_scan(const char *text, uint8_t *mac)
{
    uint8_t bytes[6] = {};
    for (size_t p = 0; p < kMacTextLen; ++p) {
        if (p % 3 == 2) {
            if (text[p] != ':')
                return static_cast<int>(p);
            continue;
        }
        const int v = hex_digit_value(text[p]);
        if (v < 0)
            return static_cast<int>(p);
        bytes[p / 3] = static_cast<uint8_t>(p % 3 == 0 ? v << 4 : bytes[p / 3] | v);
    }
    if (mac != nullptr) {
        for (size_t i = 0; i < 6; ++i)
            mac[i] = bytes[i];
    }
    return -1;
}

/// Whether `text` is a number by the rule of the values the tool defines itself (docs/
/// decisions.md): decimal digits without a leading zero ("0" itself is one), so that the text
/// typed is the number's only form and is saved as typed.
[[nodiscard]] constexpr bool is_plain_number(std::string_view text)
{
    if (text.empty() || (text.size() > 1 && text[0] == '0'))
        return false;
    for (char c : text) {
        if (c < '0' || c > '9')
            return false;
    }
    return true;
}
