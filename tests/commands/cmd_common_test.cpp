// The shared refusal steps name the calling handler in the driver log: the name is cut out of the
// compiler's full signature. (Their codes, texts and caller names are checked end to end by the
// command tests.)
#include <gtest/gtest.h>

#include <cstddef>

#include "commands/cmd_common.hpp"

TEST(CmdCommonTest, BareFuncNameDropsReturnTypeScopeAndParameters)
{
    struct Case {
        const char *signature;
        size_t size;
        const char *name;
    };
    const Case cases[] = {
        {"int32_t {anonymous}::tool_mtu_set_cmd(int, char**, cmd_parse_info*)", 64,
         "tool_mtu_set_cmd"},
        {"int32_t tool_mtu_cmd_execute(int, char**, cmd_parse_info*)", 64, "tool_mtu_cmd_execute"},
        {"tool_link_cmd_execute", 64, "tool_link_cmd_execute"},
        {"void ns::Store::flush() const", 64, "flush"},
        {"const char *name_of(int)", 64, "name_of"},
        {"int32_t tool_get_mac(int)", 5, "tool"},
        {"", 8, ""},
        {nullptr, 8, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.signature != nullptr ? c.signature : "(null)");
        char out[64] = "stale";
        cmd_bare_func_name(c.signature, out, c.size);
        EXPECT_STREQ(out, c.name);
    }
}
