// The -eth_test command: the port's self-check, item by item, with its verdict first.
#include <cstdio>

#include "base/result.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "commands/diag_common.hpp"
#include "device/ops.hpp"

namespace
{

constexpr const char *kHelpEthTest = "   [-g]        : get eth self-check info \n";
constexpr const char *kItems[KOPA_ETH_TEST_ITEMS] = {
    "register", "mac loopback", "serdes loopback", "link", "optical module", "pcs",
};
constexpr const char *kResults[] = {"pass", "FAIL", "not run"};

int32_t tool_eth_test_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    kopa_eth_test_info test{};
    int ret = kopa_get_eth_test_info(info->logic_id, KOPA_ETH_TEST_ALL, &test);
    if (ret != 0)
        return diag_device_failed(CMD_HERE, "kopa get eth test info", ret, info->logic_id);
    bool failed = false;
    for (uint32_t result : test.result)
        failed = failed || result == 1;
    printf("self-check: %s\n", failed ? "FAIL" : "PASS");
    for (uint32_t i = 0; i < KOPA_ETH_TEST_ITEMS; ++i) {
        const uint32_t result = test.result[i];
        printf("%s: %s\n", kItems[i], result < 3 ? kResults[result] : "unknown");
    }
    return kOk;
}

constexpr CmdOp kEthTestOps[] = {{"-g", 1, false, tool_eth_test_get_cmd}};

} // namespace

extern constexpr CmdDesc kEthTestCmd{
    .major = "-i",
    .name = "-eth_test",
    .handler = "tool_eth_test_cmd_execute",
    .description = "eth self-check info cmd",
    .help = kHelpEthTest,
    .ops = kEthTestOps,
    .unknown_op = {RefusalLog::kDriverLog, "invalid operation", "Get unknown option!\n"},
    .count_first = true,
};
