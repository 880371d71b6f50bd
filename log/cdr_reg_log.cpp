// The clock-data-recovery register log: a dump file per run in the current directory.
#include "log/cdr_reg_log.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "log/driver_log.hpp"

namespace
{

char g_cdr_file_name[128];

/// The file of the dump under way: set by its first text; `failed` once a text was not written.
struct CdrDump {
    bool started = false;
    bool failed = false;
    dev_t dev = 0;
    ino_t ino = 0;
};
CdrDump g_dump;

// A file planted under the name (a link, a FIFO, another user's file) or put there between two
// texts is not the dump's: writing to it would block, hand the dump to someone else or split it.
bool is_dump_file(int fd)
{
    struct stat st {
    };
    if (fstat(fd, &st) != 0) {
        DRV_ERR("stat %s failed. (errno=%d)", g_cdr_file_name, errno);
        return false;
    }
    if (!S_ISREG(st.st_mode) || st.st_uid != geteuid()) {
        DRV_ERR("%s is not a regular file of the running user. (mode=0%o; uid=%u)", g_cdr_file_name,
                static_cast<unsigned>(st.st_mode), static_cast<unsigned>(st.st_uid));
        return false;
    }
    if (g_dump.started && (st.st_dev != g_dump.dev || st.st_ino != g_dump.ino)) {
        DRV_ERR("%s was replaced during the dump.", g_cdr_file_name);
        return false;
    }
    g_dump.started = true;
    g_dump.dev = st.st_dev;
    g_dump.ino = st.st_ino;
    return true;
}

bool write_all(int fd, const char *text, size_t size)
{
    while (size > 0) {
        const ssize_t n = write(fd, text, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        text += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

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
    g_dump = CdrDump{};
    if (n < 0 || static_cast<size_t>(n) >= sizeof(g_cdr_file_name)) {
        DRV_ERR("format cdr file name failed. (ret=%d)", n);
        g_cdr_file_name[0] = '\0';
        return -1;
    }
    return 0;
}

void VornCdrRegPrintLog(const char *format, ...)
{
    if (g_cdr_file_name[0] == '\0' || g_dump.failed)
        return;
    // Until this text is written, the dump has failed.
    g_dump.failed = true;
    char text[1024];
    va_list ap;
    va_start(ap, format);
    int n = vsnprintf(text, sizeof(text), format, ap);
    va_end(ap);
    if (n < 0 || static_cast<size_t>(n) >= sizeof(text)) {
        DRV_ERR("format cdr log failed. (ret=%d)", n);
        return;
    }
    const int fd = open(g_cdr_file_name,
                        O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0640);
    if (fd < 0) {
        DRV_ERR("open %s failed. (errno=%d)", g_cdr_file_name, errno);
        return;
    }
    bool written = is_dump_file(fd);
    if (written && !write_all(fd, text, static_cast<size_t>(n))) {
        DRV_ERR("write %s failed. (errno=%d)", g_cdr_file_name, errno);
        written = false;
    }
    if (close(fd) != 0 && written) {
        DRV_ERR("close %s failed. (errno=%d)", g_cdr_file_name, errno);
        written = false;
    }
    g_dump.failed = !written;
}

bool vorn_cdr_dump_ok()
{
    return g_cdr_file_name[0] != '\0' && g_dump.started && !g_dump.failed;
}

const char *vorn_cdr_file_name()
{
    return g_cdr_file_name;
}
