// Printing of text that comes from a device (LLDP neighbour text, firmware strings): control
// bytes are shown as escapes so that the text cannot drive the administrator's terminal.
#pragma once

#include <cstddef>
#include <cstdio>

/// Whether `byte` is shown as "\xNN": every byte below 0x20 except '\n' and '\t', and 0x7F.
/// A backslash and bytes from 0x80 up are shown as they are.
[[nodiscard]] constexpr bool escape_needed(unsigned char byte)
{
    return (byte < 0x20 && byte != '\n' && byte != '\t') || byte == 0x7F;
}

/// Writes the `len` bytes of `text`, with each byte that escape_needed() names written as
/// "\x" and two lower-case hex digits, into `dst` of `size` bytes, always terminated when
/// `size` is non-zero. An escape that does not fit whole is left out with everything after
/// it. Returns the length of the whole escaped text without its terminator, as snprintf does:
/// the output was cut when the result is `size` or more.
size_t escape_text(char *dst, size_t size, const char *text, size_t len);

/// Writes the `len` bytes of `text` to `out`, escaped as by escape_text().
void print_escaped(FILE *out, const char *text, size_t len);

/// As print_escaped for one field of a table row: newlines and tabs are shown as "\xNN" too, so
/// that the device's text cannot start a row of its own.
void print_field_escaped(FILE *out, const char *text, size_t len);
