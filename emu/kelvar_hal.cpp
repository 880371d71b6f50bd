// libkelvar_hal.so of the emulator: the caller's thread-group id and the driver log, which goes
// to "$KOPA_EMU_DIR/driver.log" at the level set by `kopa-emu log-level`.
#pragma GCC visibility push(default)
#include "platform/kopa_platform.h"
#pragma GCC visibility pop

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <string>

#include "emu/state.hpp"

extern "C" {

unsigned int kelvar_get_bare_tgid(void)
{
    return static_cast<unsigned int>(getpid());
}

}  // extern "C"

namespace {

// The configured level is read once per process: every driver-log line asks for it, and a run
// of the tool is far shorter than any change an administrator makes to it.
int configured_level()
{
    static const int level = kopa_emu::read_log_level(kopa_emu::state_dir());
    return level;
}

}  // namespace

extern "C" {

int kelvar_log_get_level(void)
{
    return configured_level();
}

const char *kelvar_log_get_level_str(int level)
{
    // The driver numbers debug 6, so its levels 5..7 are info, debug and trace.
    static const char *const kNames[] = {"[EMERG]",   "[ALERT]", "[CRIT]",  "[ERROR]",
                                         "[WARNING]", "[INFO]",  "[DEBUG]", "[TRACE]"};
    if (level < 0 || level > 7)
        return "[UNKNOWN]";
    return kNames[level];
}

const char *kelvar_log_get_time_str(void)
{
    static thread_local char text[96];
    struct timeval tv {
    };
    gettimeofday(&tv, nullptr);
    struct tm tm {
    };
    time_t secs = tv.tv_sec;
    localtime_r(&secs, &tm);
    snprintf(text, sizeof text, "[%04d-%02d-%02d-%02d:%02d:%02d.%03ld]", tm.tm_year + 1900,
             tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
             static_cast<long>(tv.tv_usec / 1000));
    return text;
}

const char *kelvar_log_get_module_str(int module_id)
{
    return module_id == KELVAR_MODULE_DEVMGMT ? "DEVMNG" : "UNKNOWN";
}

void kelvar_log_print(int log_type, int level, const char *fmt, ...)
{
    (void)log_type;
    if (fmt == nullptr)
        return;
    if (level > configured_level())
        return;
    const std::string dir = kopa_emu::state_dir();

    char stack_buf[1024];
    std::string line;
    va_list ap;
    va_start(ap, fmt);
    int n = vsnprintf(stack_buf, sizeof stack_buf, fmt, ap);
    va_end(ap);
    if (n < 0)
        return;
    if (static_cast<size_t>(n) < sizeof stack_buf) {
        line.assign(stack_buf, static_cast<size_t>(n));
    } else {
        line.resize(static_cast<size_t>(n) + 1);
        va_start(ap, fmt);
        vsnprintf(line.data(), line.size(), fmt, ap);
        va_end(ap);
        line.resize(static_cast<size_t>(n));
    }
    if (line.empty() || line.back() != '\n')
        line += '\n';

    // One append per line keeps lines of concurrent processes whole.
    int fd = open(kopa_emu::state_path(dir, "driver.log").c_str(),
                  O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0)
        return;
    ssize_t w = write(fd, line.data(), line.size());
    (void)w;
    close(fd);
}

} // extern "C"
