// Escaping of device text before it reaches the terminal.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/escape.hpp"

namespace
{

std::string escaped(const std::string &text)
{
    char buf[256];
    size_t need = escape_text(buf, sizeof(buf), text.data(), text.size());
    EXPECT_EQ(need, strlen(buf)) << "text cut";
    return buf;
}

std::string printed(const std::string &text, bool field = false)
{
    char *data = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&data, &size);
    if (out == nullptr) {
        ADD_FAILURE() << "open_memstream";
        return {};
    }
    if (field)
        print_field_escaped(out, text.data(), text.size());
    else
        print_escaped(out, text.data(), text.size());
    fclose(out);
    std::string result(data, size);
    free(data);
    return result;
}

TEST(EscapeTest, ControlBytesBecomeHexEscapesAndTextStaysAsItIs)
{
    struct Case {
        std::string text, want;
    };
    const std::string long_text = std::string(255, 'a') + "\x1b\x1b" + std::string(300, 'b');
    const Case cases[] = {
        {"\x1b[2J\x1b]0;title\x07", "\\x1b[2J\\x1b]0;title\\x07"},
        {"over\rwrite", "over\\x0dwrite"},
        {"back\b\b", "back\\x08\\x08"},
        {"del\x7f", "del\\x7f"},
        {std::string("nul\0in", 6), "nul\\x00in"},
        {"\x01\x1f\x20", "\\x01\\x1f "},
        // Tabs, newlines, a backslash and UTF-8 bytes are shown as they are.
        {"Chassis ID TLV\n\tMAC: 00:11:22:33:44:55\nPort\\1 caf\xc3\xa9\n",
         "Chassis ID TLV\n\tMAC: 00:11:22:33:44:55\nPort\\1 caf\xc3\xa9\n"},
        {"", ""},
        // Escapes on both sides of the printer's chunk boundary.
        {long_text, std::string(255, 'a') + "\\x1b\\x1b" + std::string(300, 'b')},
    };
    // A field of a table row keeps to its row: newlines and tabs are escaped too.
    EXPECT_EQ(printed("a\nb\tc\x1b\n", true), "a\\x0ab\\x09c\\x1b\\x0a");
    EXPECT_EQ(printed(long_text, true), printed(long_text));
    for (const Case &c : cases) {
        EXPECT_EQ(printed(c.text), c.want);
        if (c.want.size() < 256) {
            EXPECT_EQ(escaped(c.text), c.want);
        }
    }
}

TEST(EscapeTest, ShortBufferKeepsWholeEscapesOnlyAndReportsTheFullLength)
{
    char buf[6];
    // The escape after "ab" does not fit whole, so neither it nor the "c" after it is written.
    EXPECT_EQ(escape_text(buf, sizeof(buf), "ab\033c", 4), 7u);
    EXPECT_STREQ(buf, "ab");
    EXPECT_EQ(escape_text(buf, sizeof(buf), "abcdefg", 7), 7u);
    EXPECT_STREQ(buf, "abcde");
    EXPECT_EQ(escape_text(nullptr, 0, "\x1b", 1), 4u);
}

} // namespace
