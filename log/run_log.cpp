// The run log: one locked append per line to vorn.log, rotated to vorn.log.old near 5 MiB.
#include "log/run_log.hpp"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "base/paths.hpp"
#include "base/result.hpp"
#include "log/driver_log.hpp"

namespace
{

constexpr off_t kRingFileMax = 5242880;   // a write rotates at size + line >= 5 MiB
constexpr off_t kRingRotateMin = 5241855; // rotation moves only files above this
constexpr int kRingAttempts = 100;
constexpr mode_t kDirMode = 0640;
constexpr mode_t kFileMode = 0640;
constexpr mode_t kOldFileMode = 0440;
constexpr size_t kDirPathLen = 64;
constexpr size_t kLogPathLen = 128;
constexpr size_t kFormatLen = 1024;
constexpr size_t kMsgLen = 1025;
constexpr size_t kStampLen = 128;
constexpr size_t kLevelWordLen = 13; // "PROMPT MINOR " and "CONFIG MAJOR "

class Fd
{
  public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    int get() const { return fd_; }
    int release()
    {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset()
    {
        if (fd_ >= 0)
            (void)close(fd_);
        fd_ = -1;
    }

  private:
    int fd_;
};

// The directory of the log by user name: root logs under /var/log, anyone else in /home/<name>.
int log_dir_for(const char *user, char *buf, size_t size)
{
    int n = strcmp(user, "root") == 0 ? snprintf(buf, size, "%s", kRunLogRootDir)
                                      : snprintf(buf, size, kHomeDirFmt, user);
    return (n < 0 || static_cast<size_t>(n) >= size) ? kErrnoNoMem : 0;
}

int GetLogFilePath(char *buf, size_t size)
{
    // The name found at start comes from the same password record of the same real user id;
    // reusing it spares every line a walk through the password database.
    const char *known = vorn_get_g_usr_name();
    if (known[0] != '\0')
        return log_dir_for(known, buf, size);

    passwd record{};
    passwd *found = nullptr;
    char strings[1024];
    int ret = getpwuid_r(getuid(), &record, strings, sizeof(strings), &found);
    if (ret != 0 || found == nullptr) {
        explicit_bzero(strings, sizeof(strings));
        return kErrnoInval;
    }
    int ret_dir = log_dir_for(record.pw_name, buf, size);
    explicit_bzero(&record, sizeof(record));
    explicit_bzero(strings, sizeof(strings));
    return ret_dir;
}

#ifdef VORN_TEST_PATHS
// A test root starts empty: make the parents of the log directory the system would have.
void make_parents(const char *path)
{
    std::string p(path);
    for (size_t pos = p.find('/', 1); pos != std::string::npos; pos = p.find('/', pos + 1))
        (void)mkdir(p.substr(0, pos).c_str(), 0755);
}
#endif

int CheckFilePath(const char *path, mode_t mode)
{
    if (path == nullptr || strnlen(path, PATH_MAX + 1) > PATH_MAX)
        return kErrnoInval;
    char resolved[PATH_MAX + 1];
    if (realpath(path, resolved) != nullptr)
        return 0;
    if (errno != ENOENT)
        return -errno;
#ifdef VORN_TEST_PATHS
    make_parents(path);
#endif
    if (mkdir(path, mode) != 0 && errno != EEXIST)
        return -errno;
    (void)chmod(path, mode); // the mode is exact whatever the umask
    return 0;
}

// Opens without following a link at the last component; a file it creates gets `mode` exactly.
int VornOpenByMode(const char *path, int flags, mode_t mode)
{
    if (path == nullptr || flags < 0 || strnlen(path, PATH_MAX + 1) > PATH_MAX)
        return -1;
    flags |= O_NOFOLLOW | O_CLOEXEC;
    if ((flags & O_CREAT) == 0)
        return open(path, flags);
    // The file nearly always exists: open it as it is first, create it only when it is missing.
    int fd = open(path, flags & ~O_CREAT);
    if (fd >= 0 || errno != ENOENT)
        return fd;
    fd = open(path, flags | O_EXCL, mode);
    if (fd >= 0) {
        (void)fchmod(fd, mode);
        return fd;
    }
    return errno == EEXIST ? open(path, flags & ~O_CREAT) : -1;
}

int VornGetTimeForLog(size_t size, char *buf)
{
    timeval tv{};
    tm local{};
    if (gettimeofday(&tv, nullptr) != 0 || localtime_r(&tv.tv_sec, &local) == nullptr)
        return -1;
    int n = snprintf(buf, size, "%04d-%02d-%02d %02d:%02d:%02d.%03ld", local.tm_year + 1900,
                     local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                     static_cast<long>(tv.tv_usec / 1000));
    return (n < 0 || static_cast<size_t>(n) >= size) ? -1 : 0;
}

// Appends `src` to the text of length *len in `dst`; -1 when it would not fit.
int VornCatStr(char *dst, size_t size, size_t *len, const char *src, size_t src_len)
{
    if (*len + src_len >= size)
        return -1;
    memcpy(dst + *len, src, src_len);
    *len += src_len;
    dst[*len] = '\0';
    return 0;
}

// The formatted line with the time stamp put right after the user name. Leaves `msg` empty
// when any piece does not fit, so that no partial line reaches the log.
void VornFillMsg(char *msg, size_t size, const char *format, va_list ap)
{
    msg[0] = '\0';
    char text[kFormatLen];
    int n = vsnprintf(text, sizeof(text), format, ap);
    if (n < 0 || static_cast<size_t>(n) >= sizeof(text)) {
        (void)printf("copy format to logStr failed, ret[%d]\n", n < 0 ? n : -1);
        return;
    }
    size_t text_len = static_cast<size_t>(n);
    size_t head = kLevelWordLen + strlen(vorn_get_g_usr_name());
    if (head > text_len)
        head = text_len;
    char stamp[kStampLen] = "";
    (void)VornGetTimeForLog(sizeof(stamp), stamp);
    size_t len = 0;
    int ret = VornCatStr(msg, size, &len, text, head);
    if (ret != 0) {
        (void)printf("copy log head to msg failed, ret(%d)\n", ret);
        msg[0] = '\0';
        return;
    }
    ret = VornCatStr(msg, size, &len, stamp, strlen(stamp));
    if (ret != 0) {
        (void)printf("copy timeStamp to msg failed, ret(%d)\n", ret);
        msg[0] = '\0';
        return;
    }
    ret = VornCatStr(msg, size, &len, text + head, text_len - head);
    if (ret != 0) {
        (void)printf("copy log tail to msg failed, ret(%d)\n", ret);
        msg[0] = '\0';
    }
}

void VornCheckRingFileLen(const char *log_path, const char *old_path)
{
    // The log's own lock keeps writers out while the file moves, and the inode test makes
    // sure the file that was measured is the one still under the name.
    Fd fd(open(log_path, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (fd.get() < 0)
        return;
    if (flock(fd.get(), LOCK_EX) != 0) {
        DRV_WARN("flock %s failed, errno=%d\n", log_path, errno);
        return;
    }
    struct stat held {
    };
    struct stat named {
    };
    if (fstat(fd.get(), &held) != 0 || lstat(log_path, &named) != 0 ||
        held.st_ino != named.st_ino || held.st_dev != named.st_dev ||
        held.st_size <= kRingRotateMin) {
        (void)flock(fd.get(), LOCK_UN);
        return;
    }
    if (remove(old_path) != 0 && errno != ENOENT)
        DRV_WARN("file : %s remove fail, errno : %d.", old_path, errno);
    if (fchmod(fd.get(), kOldFileMode) != 0)
        DRV_WARN("file : %s chmod fail, errno : %d.", log_path, errno);
    if (rename(log_path, old_path) != 0)
        DRV_WARN("file : %s rename fail, errno : %d.", log_path, errno);
    (void)flock(fd.get(), LOCK_UN);
}

void VornSetRingFile(const char *log_path, const char *lock_path)
{
    size_t len = strlen(log_path);
    if (len == 0 || len > PATH_MAX) {
        DRV_ERR("len : %d is an invalid value.", static_cast<int>(len));
        return;
    }
    std::string old_path(log_path, len);
    old_path += ".old";
    Fd lock(VornOpenByMode(lock_path, O_RDWR | O_CREAT, kFileMode));
    if (lock.get() < 0) {
        DRV_ERR("file %s open fail, fd : %d.", lock_path, lock.get());
        return;
    }
    // Only one run rotates; the others find the lock taken and go on writing.
    if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0)
        return;
    VornCheckRingFileLen(log_path, old_path.c_str());
    if (flock(lock.get(), LOCK_UN) != 0)
        DRV_WARN("fd : %d unlock fail, errno : %d.", lock.get(), errno);
    lock.reset();
    if (remove(lock_path) != 0 && errno != ENOENT)
        DRV_WARN("file : %s remove fail, errno : %d.", lock_path, errno);
}

// A descriptor of the log, opened for appending and exclusively locked, rotated first when
// the line would take the file to 5 MiB.
int VornGetRingFd(const char *dir, const char *log_path, size_t msg_len)
{
    std::string lock_path(dir);
    lock_path += "/vorn.lock";
    for (int attempt = 1; attempt <= kRingAttempts; ++attempt) {
        Fd fd(VornOpenByMode(log_path, O_WRONLY | O_CREAT | O_APPEND, kFileMode));
        if (fd.get() < 0) {
            DRV_WARN("open %s failed, errno=%d\n", log_path, errno);
            return -1;
        }
        if (flock(fd.get(), LOCK_EX) != 0) {
            DRV_WARN("flock %s failed, errno=%d\n", log_path, errno);
            return -1;
        }
        struct stat held {
        };
        struct stat named {
        };
        if (fstat(fd.get(), &held) != 0)
            return -1;
        // Another run may have moved the file to ".old" while this one waited for the lock.
        if (lstat(log_path, &named) != 0 || named.st_ino != held.st_ino ||
            named.st_dev != held.st_dev)
            continue;
        // The last attempt writes whatever the size: an audit line is never dropped.
        if (held.st_size + static_cast<off_t>(msg_len) < kRingFileMax || attempt == kRingAttempts)
            return fd.release();
        (void)flock(fd.get(), LOCK_UN);
        fd.reset();
        VornSetRingFile(log_path, lock_path.c_str());
    }
    return -1;
}

} // namespace

void VornPrintLog(const char *format, ...)
{
    char dir_name[kDirPathLen];
    int ret = GetLogFilePath(dir_name, sizeof(dir_name));
    if (ret != 0) {
        DRV_ERR("GetLogFilePath failed, ret:%d", ret);
        return;
    }
    std::string dir = sys_path(dir_name);
    ret = CheckFilePath(dir.c_str(), kDirMode);
    if (ret != 0) {
        DRV_ERR("CheckFilePath failed, ret:%d", ret);
        return;
    }
    char log_name[kLogPathLen];
    ret = snprintf(log_name, sizeof(log_name), "%s/vorn.log", dir_name);
    if (ret < 0 || static_cast<size_t>(ret) >= sizeof(log_name)) {
        DRV_ERR("sprintf_s for root failed, ret:%d logFilePath:%s", ret, dir_name);
        return;
    }
    std::string log_path = sys_path(log_name);
    struct stat st {
    };
    if (lstat(log_path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
        DRV_ERR("Lstat fail");
        return;
    }
    char msg[kMsgLen];
    va_list ap;
    va_start(ap, format);
    VornFillMsg(msg, sizeof(msg), format, ap);
    va_end(ap);
    size_t msg_len = strlen(msg);
    if (msg_len == 0)
        return;
    int fd = VornGetRingFd(dir.c_str(), log_path.c_str(), msg_len);
    if (fd < 0) {
        DRV_ERR("VornGetRingFd fail(fd=%d)", fd);
        return;
    }
    ssize_t written = write(fd, msg, msg_len);
    if (written != static_cast<ssize_t>(msg_len))
        DRV_ERR("Write fail(ret=%d)", static_cast<int>(written));
    (void)flock(fd, LOCK_UN);
    if (close(fd) != 0)
        (void)printf("close log handle failed, errno(%d)\n", errno);
}
