// The driver-log channel: prefix, level check and hand-over to kelvar_log_print.
#include "log/driver_log.hpp"

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

namespace
{

const char *or_empty(const char *s)
{
    return s != nullptr ? s : "";
}

} // namespace

bool drv_log_enabled(int level)
{
    return kelvar_log_get_level() >= level;
}

void drv_log_write(int level, const char *func, int line, const char *fmt, ...)
{
    char buf[2048];
    int head =
        snprintf(buf, sizeof(buf), "[kelvar]%s%s[curpid: %d, %d][drv][%s][%s %d]",
                 or_empty(kelvar_log_get_level_str(level)), or_empty(kelvar_log_get_time_str()),
                 static_cast<int>(getpid()), static_cast<int>(syscall(SYS_gettid)),
                 or_empty(kelvar_log_get_module_str(KELVAR_MODULE_DEVMGMT)), func, line);
    if (head < 0)
        return;
    if (static_cast<size_t>(head) < sizeof(buf)) {
        va_list ap;
        va_start(ap, fmt);
        // A text longer than the buffer is cut; the driver log is diagnostic only.
        (void)vsnprintf(buf + head, sizeof(buf) - static_cast<size_t>(head), fmt, ap);
        va_end(ap);
    }
    kelvar_log_print(KELVAR_LOG_TYPE_DRV, level, "%s", buf);
}
