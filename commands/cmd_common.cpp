// Shared refusal, replay-read and save steps of the command handlers.
#include "commands/cmd_common.hpp"

#include <cstdio>
#include <cstring>

#include "commands/conf_item.hpp"
#include "config/store.hpp"
#include "log/driver_log.hpp"
#include "log/run_log.hpp"
#include "main/result.hpp"

namespace {

constexpr size_t kFuncNameSize = 128;

/// The caller's bare function name, as __func__ would give it in the caller.
class CallerName {
public:
    explicit CallerName(const std::source_location &where)
    {
        cmd_bare_func_name(where.function_name(), name_, sizeof(name_));
    }
    const char *get() const { return name_; }

private:
    char name_[kFuncNameSize];
};

const char *file_basename(const char *path)
{
    const char *slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

}  // namespace

void cmd_bare_func_name(const char *signature, char *out, size_t size)
{
    if (out == nullptr || size == 0)
        return;
    if (signature == nullptr) {
        out[0] = '\0';
        return;
    }
    const char *end = strchr(signature, '(');
    if (end == nullptr)
        end = signature + strlen(signature);
    const char *start = end;
    // The name starts after the return type, the namespaces and the class.
    while (start > signature && strchr(" :*&", start[-1]) == nullptr)
        --start;
    size_t len = static_cast<size_t>(end - start);
    if (len >= size)
        len = size - 1;
    memcpy(out, start, len);
    out[len] = '\0';
}

int32_t cmd_err_argc(int argc, std::source_location where)
{
    if (drv_log_enabled(KELVAR_LEVEL_ERROR))
        drv_log_write(KELVAR_LEVEL_ERROR, CallerName(where).get(),
                      static_cast<int>(where.line()), "err argc[%d]", argc);
    return kErrArgCount;
}

int32_t cmd_err_unknown_option(const char *log_text, const char *user_text,
                               std::source_location where)
{
    if (log_text != nullptr)
        VornPrintLog("PROMPT MINOR %s %s %s:%d >>> %s", vorn_get_g_usr_name(), vorn_get_g_usr_ip(),
                     file_basename(where.file_name()), static_cast<int>(where.line()), log_text);
    fputs(user_text, stderr);
    return kErrUnknownOption;
}

int32_t cmd_err_unknown_option_drv(const char *drv_text, const char *user_text,
                                   std::source_location where)
{
    if (drv_log_enabled(KELVAR_LEVEL_ERROR)) {
        CallerName func(where);
        int line = static_cast<int>(where.line());
        drv_log_write(KELVAR_LEVEL_ERROR, func.get(), line, "%s", drv_text);
        int len = static_cast<int>(strcspn(user_text, "\n"));
        drv_log_write(KELVAR_LEVEL_ERROR, func.get(), line, "%.*s", len, user_text);
    }
    fputs(user_text, stderr);
    return kErrUnknownOption;
}

bool cmd_replay_read(uint32_t phy_id, const char *item, const char *what, char *value,
                     uint32_t size, std::source_location where)
{
    int ret = tool_conf_read_item(phy_id, item, value, size);
    if (ret == 0)
        return true;
    if (drv_log_enabled(KELVAR_LEVEL_DEBUG))
        drv_log_write(KELVAR_LEVEL_DEBUG, CallerName(where).get(), static_cast<int>(where.line()),
                      "%s do not need recover cfg [%d]", what, ret);
    return false;
}

int32_t cmd_save_item(uint32_t phy_id, const char *item, const char *value, const char *user_text,
                      std::source_location where)
{
    int ret = cfg_write_conf(phy_id, item, value);
    if (ret == 0)
        return kOk;
    if (drv_log_enabled(KELVAR_LEVEL_ERROR))
        drv_log_write(KELVAR_LEVEL_ERROR, CallerName(where).get(), static_cast<int>(where.line()),
                      "write cfg error[%d], phy_id[%u]", ret, phy_id);
    fputs(user_text, stderr);
    return ret;
}
