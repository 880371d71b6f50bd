// The clock-data-recovery register log: a dump file per run in the current directory.
#include "log/cdr_reg_log.hpp"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "log/driver_log.hpp"

namespace
{

char g_cdr_file_name[128];

} // namespace

int generate_file_name(int device_id)
{
    timeval tv{};
    tm local{};
    if (gettimeofday(&tv, nullptr) != 0 || localtime_r(&tv.tv_sec, &local) == nullptr) {
        DRV_ERR("get local time failed.");
        return -1;
    }
    int n =
        snprintf(g_cdr_file_name, sizeof(g_cdr_file_name), "device-%d-CdrReg_%d%d%d%d%d%d%d.log",
                 device_id, local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                 local.tm_min, local.tm_sec, static_cast<int>(tv.tv_usec / 1000));
    if (n < 0 || static_cast<size_t>(n) >= sizeof(g_cdr_file_name)) {
        DRV_ERR("format cdr file name failed. (ret=%d)", n);
        g_cdr_file_name[0] = '\0';
        return -1;
    }
    return 0;
}

void VornCdrRegPrintLog(const char *format, ...)
{
    if (g_cdr_file_name[0] == '\0')
        return;
    char text[1024];
    va_list ap;
    va_start(ap, format);
    int n = vsnprintf(text, sizeof(text), format, ap);
    va_end(ap);
    if (n < 0 || static_cast<size_t>(n) >= sizeof(text)) {
        DRV_ERR("format cdr log failed. (ret=%d)", n);
        return;
    }
    int fd = open(g_cdr_file_name, O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0640);
    if (fd < 0) {
        DRV_ERR("open %s failed.", g_cdr_file_name);
        return;
    }
    if (write(fd, text, static_cast<size_t>(n)) != n)
        DRV_ERR("write %s failed.", g_cdr_file_name);
    (void)close(fd);
}

const char *vorn_cdr_file_name()
{
    return g_cdr_file_name;
}
