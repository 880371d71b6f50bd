// libkelvar_hal.so of the emulator: the caller's thread-group id and the driver log, which goes
// to "$KOPA_EMU_DIR/driver.log" at the level set by `kopa-emu log-level`.
//
// Plain POSIX and stdio formatting only: the library is loaded by every run of the tool, so it
// carries no C++ runtime and none of the state code of the other emulator parts. The file names
// and formats are those of emu/state.cpp (default directory, "log_level", "driver.log").
#pragma GCC visibility push(default)
#include "platform/kopa_platform.h"
#pragma GCC visibility pop

#include <fcntl.h>
#include <limits.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

extern "C" {

unsigned int kelvar_get_bare_tgid(void)
{
    return static_cast<unsigned int>(getpid());
}

} // extern "C"

namespace
{

constexpr int kDefaultLevel = 3;

/// "<state dir>/<name>" into `buf`; false when it does not fit.
bool state_file(const char *name, char (&buf)[PATH_MAX])
{
    const char *dir = getenv("KOPA_EMU_DIR");
    if (dir == nullptr || dir[0] == '\0')
        dir = "/tmp/kopa-emu";
    int n = snprintf(buf, sizeof buf, "%s/%s", dir, name);
    return n > 0 && static_cast<size_t>(n) < sizeof buf;
}

/// The level in the "log_level" file: its first character, '0'..'7'; the default otherwise.
int read_level()
{
    char path[PATH_MAX];
    if (!state_file("log_level", path))
        return kDefaultLevel;
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return kDefaultLevel;
    char c = 0;
    ssize_t n;
    do {
        n = read(fd, &c, 1);
    } while (n < 0 && errno == EINTR);
    close(fd);
    return (n == 1 && c >= '0' && c <= '7') ? c - '0' : kDefaultLevel;
}

// The configured level is read once per process: every driver-log line asks for it, and a run
// of the tool is far shorter than any change an administrator makes to it.
// Kept without a guarded static so that the library needs no C++ runtime; two threads that both
// read the file on first use store the same value.
int configured_level()
{
    static int cached = -1;
    int level = __atomic_load_n(&cached, __ATOMIC_RELAXED);
    if (level < 0) {
        level = read_level();
        __atomic_store_n(&cached, level, __ATOMIC_RELAXED);
    }
    return level;
}

/// Appends `len` bytes with one write, so that lines of concurrent processes stay whole.
void append_line(const char *line, size_t len)
{
    char path[PATH_MAX];
    if (!state_file("driver.log", path))
        return;
    int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0)
        return;
    ssize_t w = write(fd, line, len);
    (void)w; // a lost log line must not fail the caller
    close(fd);
}

} // namespace

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
    if (fmt == nullptr || level > configured_level())
        return;

    // Room for the newline that ends every line; a longer line goes to the heap.
    char stack_buf[1024];
    va_list ap;
    va_start(ap, fmt);
    int n = vsnprintf(stack_buf, sizeof stack_buf - 1, fmt, ap);
    va_end(ap);
    if (n < 0)
        return;
    size_t len = static_cast<size_t>(n);
    char *line = stack_buf;
    if (len >= sizeof stack_buf - 1) {
        line = static_cast<char *>(malloc(len + 2));
        if (line == nullptr)
            return;
        va_start(ap, fmt);
        vsnprintf(line, len + 1, fmt, ap);
        va_end(ap);
    }
    if (len == 0 || line[len - 1] != '\n')
        line[len++] = '\n';
    append_line(line, len);
    if (line != stack_buf)
        free(line);
}

} // extern "C"
