// The setting lock, held like iptables' xtables.lock: an exclusive flock on a file in /run,
// whose content names the process that holds it.
#include "cmdline/setting_lock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "base/paths.hpp"
#include "base/result.hpp"
#include "log/driver_log.hpp"

namespace
{

constexpr int kPollMs = 20;

// The descriptor of the lock this process holds, -1 before it took it: a program that runs
// several settings in one process (vornctl apply) takes the lock once for all of them.
int g_held_fd = -1;

int wait_ms()
{
#ifdef VORN_TEST_PATHS
    // Tests of a held lock need not wait the whole time.
    if (const char *text = getenv("VORN_TEST_LOCK_WAIT_MS"); text != nullptr)
        return atoi(text);
#endif
    return kSettingLockWaitMs;
}

void sleep_ms(int ms)
{
    timespec ts{ms / 1000, static_cast<long>(ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

// The holder's pid as it wrote it, or 0 when the file says nothing usable.
long holder_of(int fd)
{
    char text[32] = {};
    const ssize_t n = pread(fd, text, sizeof(text) - 1, 0);
    return n > 0 ? strtol(text, nullptr, 10) : 0;
}

void name_holder(int fd)
{
    char text[32];
    const int n = snprintf(text, sizeof(text), "%ld\n", static_cast<long>(getpid()));
    // The pid first, then the cut to its length: a waiter never reads an empty file.
    if (pwrite(fd, text, static_cast<size_t>(n), 0) != n || ftruncate(fd, n) != 0)
        DRV_WARN("write pid to setting lock failed, errno=%d", errno);
}

// "<lead> <path> is held by process <pid>." or "... by another run.", on standard error.
void say_held(const char *lead, const std::string &path, long holder)
{
    if (holder > 0)
        (void)fprintf(stderr, "%s %s is held by process %ld.\n", lead, path.c_str(), holder);
    else
        (void)fprintf(stderr, "%s %s is held by another run.\n", lead, path.c_str());
}

} // namespace

int32_t take_setting_lock()
{
    if (g_held_fd >= 0)
        return kOk;
    const std::string path = sys_path(kSettingLockPath);
    const std::string dir = path.substr(0, path.rfind('/'));
    (void)mkdir(dir.c_str(), 0755);
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
        DRV_ERR("open setting lock %s failed, errno=%d; running unlocked", path.c_str(), errno);
        return kOk;
    }
    const int limit = wait_ms();
    for (int waited = 0;; waited += kPollMs) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0) {
            name_holder(fd);
            g_held_fd = fd;
            return kOk;
        }
        if (errno != EWOULDBLOCK && errno != EINTR) {
            DRV_ERR("flock setting lock %s failed, errno=%d; running unlocked", path.c_str(),
                    errno);
            (void)close(fd);
            return kOk;
        }
        if (waited >= limit)
            break;
        // The wait may be long: the administrator learns at once whom the run waits for.
        if (waited == 0)
            say_held("Waiting for the setting lock:", path, holder_of(fd));
        sleep_ms(kPollMs);
    }
    const long holder = holder_of(fd);
    (void)close(fd);
    say_held("The setting lock", path, holder);
    DRV_ERR("setting lock %s busy for %d ms, holder %ld", path.c_str(), limit, holder);
    return kErrBusy;
}
