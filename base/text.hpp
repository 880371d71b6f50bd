// Bounded text helpers: every copy and format names its destination size and fails rather
// than cut.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

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
