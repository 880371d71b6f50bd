// Unit tests of the pure value checkers of -mac and -mtu.
#include <gtest/gtest.h>

#include <cstdint>
#include <utility>

#include "commands/port_settings.hpp"

namespace
{

class PortChecksTest : public ::testing::Test
{
};

TEST_F(PortChecksTest, MacFilterRefusesReservedAddressesCaseSensitively)
{
    const std::pair<const char *, int32_t> cases[] = {
        {"00:11:22:33:44:55", 0},      {"ff:FF:ff:FF:ff:FF", 0},      {"FF:FF:FF:FF:FF:FF", 0x2006},
        {"ff:ff:ff:ff:ff:ff", 0x2006}, {"00:00:00:00:00:00", 0x2006}, {"09:00:2b:00:00:05", 0x2006},
        {"09:00:2B:00:00:06", 0},      {"03:00:00:00:00:09", 0},      {"01:80:C2:00:00:0E", 0x2006},
        {"01:80:c2:00:00:0E", 0x2006}, {"21:00:00:00:00:00", 0x2006}, {"03:00:00:40:00:00", 0x2006},
    };
    for (const auto &[text, code] : cases)
        EXPECT_EQ(tool_mac_filter_check(text), code) << text;
}

TEST_F(PortChecksTest, MtuTextMustBeDigitsWithinTheMaximum)
{
    struct Case {
        const char *text;
        int32_t code;
        uint32_t mtu;
    };
    // The range 68..9702 is the setter's: 67 is a well-formed text.
    const Case cases[] = {
        {"68", 0, 68},
        {"9702", 0, 9702},
        {"67", 0, 67},
        {"9703", 8206, 0},
        {"100000", 8206, 0},
        {"1500a", 8193, 0},
        {"+1500", 8193, 0},
        {" 1500", 8193, 0},
        {"01500", 8206, 0},
        // Longer texts would not fit the saved value's replay buffer, and could wrap.
        {"000000001500", 8206, 0},
        {"000000004294967364", 8206, 0},
    };
    for (const Case &c : cases) {
        uint32_t mtu = 0;
        EXPECT_EQ(tool_check_mtu(c.text, &mtu), c.code) << c.text;
        EXPECT_EQ(mtu, c.mtu) << c.text;
    }
    uint32_t mtu = 0;
    EXPECT_EQ(tool_check_mtu(nullptr, &mtu), 8193);
}

} // namespace
