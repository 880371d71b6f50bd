// The -net_health command: the result of the device's network health detection, in words.
#include <cstdio>
#include <cstring>

#include "base/result.hpp"
#include "cmdline/cmd.hpp"
#include "commands/cmd_common.hpp"
#include "device/device_info.hpp"
#include "log/driver_log.hpp"

namespace
{

struct NetHealthStatus {
    uint32_t code;
    char text[20];
};

constexpr uint32_t kNetHealthCount = 10;

// The code of each row equals its index.
const NetHealthStatus g_net_health_status[kNetHealthCount] = {
    {0, "Success"},     {1, "Socket fail"},   {2, "Receive timeout"},
    {3, "Unreachable"}, {4, "Time exceeded"}, {5, "Fault"},
    {6, "Init"},        {7, "Thread error"},  {8, "Detect ip set"},
    {9, "Unknown"},
};

int32_t tool_net_health_get_cmd(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    unsigned int status = 0;
    int ret = kopa_get_network_health(info->logic_id, &status);
    // A status beyond the table is as much a failure as a refused call.
    if (ret != 0 || status >= kNetHealthCount) {
        DRV_ERR("kopa get net health fail ret[%d] logic_id[%u] presult[%u]", ret, info->logic_id,
                status);
        return kErrKopa;
    }
    printf("net health status: %s\n", g_net_health_status[status].text);
    DRV_DBG("net health status: %s", g_net_health_status[status].text);
    return kOk;
}

constexpr CmdOp kNetHealthOps[] = {{"-g", 1, false, tool_net_health_get_cmd}};

} // namespace

extern constexpr CmdDesc kNetHealthCmd{
    .major = "-i",
    .name = "-net_health",
    .handler = "tool_net_health_cmd_execute",
    .description = "net health cmd",
    .help = "   [-g]        : get net health status \n",
    .ops = kNetHealthOps,
    .unknown_op = {RefusalLog::kDriverLog, "invalid operation", "Get unknown option!\n"},
    .count_first = true,
};
