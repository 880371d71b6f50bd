// The dispatch of a command's words to its operation, under the command's own texts and codes.
#include "cmdline/cmd.hpp"

#include <cstdio>
#include <cstring>

#include "base/result.hpp"
#include "cmdline/setting_lock.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

namespace
{

void log_argc(const CmdDesc &cmd, const char *text, int argc)
{
    if (drv_log_enabled(KELVAR_LEVEL_ERROR))
        drv_log_write(KELVAR_LEVEL_ERROR, cmd.handler, __LINE__, text, argc);
}

int32_t refuse_operation(const CmdDesc &cmd)
{
    const CmdRefusal &why = cmd.unknown_op;
    switch (why.channel) {
    case RefusalLog::kNone:
        break;
    case RefusalLog::kRunLog:
        VornPrintLog("PROMPT MINOR %s %s %s:%d >>> %s", vorn_get_g_usr_name(), vorn_get_g_usr_ip(),
                     __FILE_NAME__, __LINE__, why.log_text);
        break;
    case RefusalLog::kDriverLog:
        if (drv_log_enabled(KELVAR_LEVEL_ERROR)) {
            if (why.log_text != nullptr)
                drv_log_write(KELVAR_LEVEL_ERROR, cmd.handler, __LINE__, "%s", why.log_text);
            const int len = static_cast<int>(strcspn(why.user_text, "\n"));
            drv_log_write(KELVAR_LEVEL_ERROR, cmd.handler, __LINE__, "%.*s", len, why.user_text);
        }
        break;
    }
    (void)fputs(why.user_text, stderr);
    return kErrUnknownOption;
}

} // namespace

int32_t cmd_dispatch(const CmdDesc &cmd, int argc, char **argv, cmd_parse_info *info)
{
    if (argc <= 0) {
        log_argc(cmd, cmd.argc_log, argc);
        return kErrArgCount;
    }
    if (cmd.count_first) {
        bool any = false;
        for (const CmdOp &op : cmd.ops)
            any = any || op.argc == argc;
        if (!any) {
            log_argc(cmd, cmd.argc_log, argc);
            return kErrArgCount;
        }
    }
    const CmdOp *op = nullptr;
    for (const CmdOp &candidate : cmd.ops) {
        if (strcmp(argv[0], candidate.word) == 0) {
            op = &candidate;
            break;
        }
    }
    if (op == nullptr)
        return refuse_operation(cmd);
    int32_t ret = kOk;
    if (op->argc != kOwnCount && argc != op->argc) {
        log_argc(cmd, op->argc_log != nullptr ? op->argc_log : cmd.argc_log, argc);
        ret = kErrArgCount;
    } else {
        if (op->changes_settings && (ret = take_setting_lock()) != kOk)
            return ret;
        ret = op->run(argc, argv, info);
    }
    if (ret != kOk && op->fail_log != nullptr && drv_log_enabled(KELVAR_LEVEL_ERROR))
        drv_log_write(KELVAR_LEVEL_ERROR, cmd.handler, __LINE__, op->fail_log, ret, info->logic_id);
    return ret;
}
