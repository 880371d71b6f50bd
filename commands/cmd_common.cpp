// Shared refusal, replay-read and save steps of the command handlers.
#include "commands/cmd_common.hpp"
#include "main/cmd.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/result.hpp"
#include "config/store.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"

void cmd_stdout_by_line()
{
    (void)setvbuf(stdout, nullptr, _IOLBF, 0);
}

int32_t cmd_err_argc(const CallSite &where, int argc)
{
    if (drv_log_enabled(KELVAR_LEVEL_ERROR))
        drv_log_write(KELVAR_LEVEL_ERROR, where.func, where.line, "err argc[%d]", argc);
    return kErrArgCount;
}

int32_t cmd_err_unknown_option(const CallSite &where, const char *log_text, const char *user_text)
{
    if (log_text != nullptr)
        VornPrintLog("PROMPT MINOR %s %s %s:%d >>> %s", vorn_get_g_usr_name(), vorn_get_g_usr_ip(),
                     where.file, where.line, log_text);
    fputs(user_text, stderr);
    return kErrUnknownOption;
}

int32_t cmd_err_unknown_option_drv(const CallSite &where, const char *drv_text,
                                   const char *user_text)
{
    if (drv_log_enabled(KELVAR_LEVEL_ERROR)) {
        drv_log_write(KELVAR_LEVEL_ERROR, where.func, where.line, "%s", drv_text);
        int len = static_cast<int>(strcspn(user_text, "\n"));
        drv_log_write(KELVAR_LEVEL_ERROR, where.func, where.line, "%.*s", len, user_text);
    }
    fputs(user_text, stderr);
    return kErrUnknownOption;
}

bool cmd_replay_read(const CallSite &where, uint32_t phy_id, const char *item, const char *what,
                     char *value, uint32_t size)
{
    int ret = cfg_read_conf(phy_id, item, value, size);
    if (ret == 0)
        return true;
    if (drv_log_enabled(KELVAR_LEVEL_DEBUG))
        drv_log_write(KELVAR_LEVEL_DEBUG, where.func, where.line, "%s do not need recover cfg [%d]",
                      what, ret);
    return false;
}

int32_t cmd_copy_ip_word(const CallSite &where, char (&dst)[kIpTextSize], const char *src,
                         const char *name, bool run_log, const char *log_tail)
{
    if (copy_text(dst, src))
        return kOk;
    const unsigned len = static_cast<unsigned>(strlen(src));
    if (drv_log_enabled(KELVAR_LEVEL_ERROR))
        drv_log_write(KELVAR_LEVEL_ERROR, where.func, where.line,
                      "memcpy_s %s fail[%d], dlen[%d], slen[%u]%s", name, ERANGE, kIpTextSize, len,
                      log_tail);
    if (run_log)
        VornPrintLog("PROMPT MINOR %s %s %s:%d >>> memcpy_s %s fail[%d], dlen[%d], slen[%u]\n",
                     vorn_get_g_usr_name(), vorn_get_g_usr_ip(), where.file, where.line, name,
                     ERANGE, kIpTextSize, len);
    return kErrSysCopy;
}

int32_t cmd_save_item(const CallSite &where, uint32_t phy_id, const char *item, const char *value,
                      const char *user_text, const char *log_text)
{
    int ret = cfg_write_conf(phy_id, item, value);
    if (ret == 0)
        return kOk;
    if (drv_log_enabled(KELVAR_LEVEL_ERROR))
        drv_log_write(KELVAR_LEVEL_ERROR, where.func, where.line, log_text, ret, phy_id);
    fputs(user_text, stderr);
    return ret;
}
