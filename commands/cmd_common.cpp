// Shared refusal, replay-read and save steps of the command handlers.
#include "commands/cmd_common.hpp"
#include "cmdline/cmd.hpp"
#include "commands/saved_item.hpp"

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

bool cmd_replay_read(const CallSite &where, const ConfView &conf, uint32_t phy_id, const char *item,
                     const char *what, char *value, uint32_t size)
{
    int ret = conf.read_item(phy_id, item, value, size);
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

int32_t cmd_set_item(const CallSite &where, const ItemSetCmd &cmd, char **argv,
                     cmd_parse_info *info)
{
    if (strcmp(argv[1], cmd.keyword) != 0) {
        if (!cmd.drv_refusal)
            return cmd_err_unknown_option(where, cmd.refusal_log, cmd.refusal_text);
        if (drv_log_enabled(KELVAR_LEVEL_ERROR))
            drv_log_write(KELVAR_LEVEL_ERROR, where.func, where.line, "%.*s",
                          static_cast<int>(strcspn(cmd.refusal_log, "\n")), cmd.refusal_log);
        fputs(cmd.refusal_text, stderr);
        return kErrUnknownOption;
    }
    VornPrintLog("CONFIG MAJOR %s %s %s:%d >>> start to set %s of logic_id[%u]\n",
                 vorn_get_g_usr_name(), vorn_get_g_usr_ip(), where.file, where.line, cmd.start_what,
                 info->logic_id);
    int32_t ret = cmd.item->set(dev_of(info), argv[2], SetMode::kCommand);
    if (ret != kOk) {
        if (drv_log_enabled(KELVAR_LEVEL_ERROR))
            drv_log_write(KELVAR_LEVEL_ERROR, where.func, where.line, "set %s failed, logic_id[%u]",
                          cmd.fail_what, info->logic_id);
        return ret;
    }
    return cmd_save_item(where, info->phy_id, cmd.item->key, argv[2], cmd.save_fail);
}

int32_t cmd_replay_value(const CallSite &where, const ConfView &conf, const SavedItem &item,
                         DevRef dev, const char *what, const char *found, const char *fail_format)
{
    char value[kCfgLineSize] = {};
    if (!cmd_replay_read(where, conf, dev.phy_id, item.key, what, value, item.buffer))
        return kOk;
    if (drv_log_enabled(KELVAR_LEVEL_DEBUG))
        drv_log_write(KELVAR_LEVEL_DEBUG, where.func, where.line, "%s", found);
    const int32_t ret = item.set(dev, value, SetMode::kRecovery);
    if (ret != kOk && fail_format != nullptr && drv_log_enabled(KELVAR_LEVEL_ERROR))
        drv_log_write(KELVAR_LEVEL_ERROR, where.func, where.line, fail_format, ret, dev.logic_id);
    return ret;
}
