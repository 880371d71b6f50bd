// The entry point of vorn_tool: identity, parse and dispatch, the final message and exit code.
#include <cstdio>

#include "log/driver_log.hpp"
#include "log/run_log.hpp"
#include "main/dispatch.hpp"
#include "main/errors.hpp"
#include "main/identity.hpp"
#include "base/result.hpp"

int main(int argc, char **argv)
{
    cmd_parse_info info{};
    int ret = vorn_get_usr_name();
    if (ret != 0) {
        DRV_ERR("VORN get user name fail. (ret=%d)", ret);
        return ret;
    }
    ret = vorn_get_usr_ip();
    if (ret != 0) {
        DRV_ERR("vorn_get_usr_ip fail! ret[%d]", ret);
        return ret;
    }
    ret = parse_cmd(argc, argv, &info);
    if (ret == kOk) {
        RUN_LOG_PROMPT("vorn tool execution succeed!\n");
        return ret;
    }
    switch (result_class(ret)) {
    case 0x1000: uda_handle_major_err(ret); break;
    case 0x2000: uda_handle_param_err(ret, &info); break;
    case 0x3000: uda_handle_tool_sys_err(ret); break;
    case 0x4000: uda_handle_kopa_err(ret); break;
    default:
        (void)fputs("Cmd execute failed!\n", stderr);
        DRV_ERR("Cmd execute failed!");
        break;
    }
    RUN_LOG_PROMPT("vorn tool execution failed! ret:0x%x\n", static_cast<unsigned>(ret));
    // The operating system keeps the low 8 bits as the exit status.
    return ret;
}
