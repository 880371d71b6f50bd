// The client address taken from SSH_CLIENT and the user name of the real user id.
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "cmdline/identity.hpp"

namespace
{

class IdentityTest : public ::testing::Test
{
  protected:
    void TearDown() override { unsetenv("SSH_CLIENT"); }
};

TEST_F(IdentityTest, ClientAddressFollowsSshClientRules)
{
    struct Case {
        const char *ssh_client; // null: unset
        const char *want;
    };
    const std::string long_head(33, '1');
    const Case cases[] = {
        {nullptr, "127.0.0.1"},
        {"10.1.1.1 5555 22", "10.1.1.1"},
        {"fe80::1 5555 22", "Invalid IP"},
        {"10.1.1.1", "Error IP"},
        {"10.1.1.300 5555 22", "Invalid IP"},
        {"2001:db8:1234:5678:9abc:def0:1:2 5555 22", "Invalid IP"}, // 32 characters
    };
    for (const Case &c : cases) {
        if (c.ssh_client == nullptr)
            unsetenv("SSH_CLIENT");
        else
            setenv("SSH_CLIENT", c.ssh_client, 1);
        ASSERT_EQ(vorn_get_usr_ip(), 0);
        EXPECT_STREQ(vorn_get_g_usr_ip(), c.want) << (c.ssh_client ? c.ssh_client : "(unset)");
    }
    setenv("SSH_CLIENT", (long_head + " 5555 22").c_str(), 1);
    ASSERT_EQ(vorn_get_usr_ip(), 0);
    EXPECT_STREQ(vorn_get_g_usr_ip(), "Error IP");
}

TEST_F(IdentityTest, UserNameIsThatOfTheRealUserId)
{
    ASSERT_EQ(vorn_get_usr_name(), 0);
    const passwd *pw = getpwuid(getuid());
    ASSERT_NE(pw, nullptr);
    EXPECT_STREQ(vorn_get_g_usr_name(), pw->pw_name);
}

} // namespace
