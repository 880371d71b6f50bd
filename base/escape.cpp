// Escaping of device text for the terminal.
#include "base/escape.hpp"

#include <algorithm>

namespace
{

constexpr size_t kEscapeLen = 4; // "\xNN"

void format_escape(char *dst, unsigned char byte)
{
    static const char kHex[] = "0123456789abcdef";
    dst[0] = '\\';
    dst[1] = 'x';
    dst[2] = kHex[byte >> 4];
    dst[3] = kHex[byte & 0x0F];
}

} // namespace

size_t escape_text(char *dst, size_t size, const char *text, size_t len)
{
    size_t need = 0;
    size_t used = 0; // characters written; stays put once one did not fit
    bool cut = false;
    for (size_t i = 0; i < len; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool escaped = escape_needed(byte);
        const size_t width = escaped ? kEscapeLen : 1;
        need += width;
        if (cut || size == 0 || used + width > size - 1) {
            cut = true;
            continue;
        }
        if (escaped)
            format_escape(dst + used, byte);
        else
            dst[used] = static_cast<char>(byte);
        used += width;
    }
    if (size != 0)
        dst[used] = '\0';
    return need;
}

void print_escaped(FILE *out, const char *text, size_t len)
{
    // Every byte escapes into at most kEscapeLen characters, so a chunk always fits whole.
    constexpr size_t kChunk = 256;
    char buf[kChunk * kEscapeLen + 1];
    for (size_t done = 0; done < len; done += kChunk) {
        const size_t n = std::min(kChunk, len - done);
        fwrite(buf, 1, escape_text(buf, sizeof(buf), text + done, n), out);
    }
}

void print_field_escaped(FILE *out, const char *text, size_t len)
{
    size_t from = 0;
    for (size_t i = 0; i <= len; ++i) {
        if (i < len && text[i] != '\n' && text[i] != '\t')
            continue;
        print_escaped(out, text + from, i - from);
        if (i < len) {
            char escape[kEscapeLen];
            format_escape(escape, static_cast<unsigned char>(text[i]));
            fwrite(escape, 1, kEscapeLen, out);
        }
        from = i + 1;
    }
}
