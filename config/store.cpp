// The configuration store: read, replace and delete key=value lines of /etc/vorn.conf, each
// under an exclusive flock held from open to close.
#include "config/store.hpp"

#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "log/driver_log.hpp"
#include "base/paths.hpp"

namespace
{

constexpr size_t kPathMax = 4096;
// Reads and rewrites scan the file in chunks of this size rather than line by line.
constexpr size_t kChunkSize = 64 * 1024;

enum class StoreOp { kRead, kWrite, kDelete };

int op_error(StoreOp op)
{
    switch (op) {
    case StoreOp::kRead:
        return kErrSysRead;
    case StoreOp::kWrite:
        return kErrSysWrite;
    case StoreOp::kDelete:
        return kErrSysDelete;
    }
    return kErrSysRead;
}

// The configuration file, opened and exclusively locked. Closing the stream flushes any
// pending write before the descriptor goes, and with it the lock: no other process can see
// the file between the last write and the release.
class LockedConf
{
  public:
    LockedConf() = default;
    LockedConf(const LockedConf &) = delete;
    LockedConf &operator=(const LockedConf &) = delete;
    ~LockedConf()
    {
        if (stream_ == nullptr)
            return;
        int ret = fclose(stream_);
        if (ret != 0)
            DRV_ERR("Fclose fail. (ret_val=%d; errno=%d)", ret, errno);
    }

    /// Resolves `path`, opens it (never creating it), locks it and seeks to the start.
    /// 0 or the operation's result code.
    [[nodiscard]] int open(const char *path, StoreOp op);
    FILE *stream() const { return stream_; }

  private:
    FILE *stream_ = nullptr;
};

// realpath of the file, or of its directory when the file itself is missing, so that a missing
// file fails the open (with the operation's own code) rather than the resolution.
bool resolve_path(const char *path, char (&real_path)[PATH_MAX + 1])
{
    if (realpath(path, real_path) != nullptr)
        return true;
    if (errno != ENOENT)
        return false;
    const char *slash = strrchr(path, '/');
    const char *base = slash != nullptr ? slash + 1 : path;
    if (base[0] == '\0' || strcmp(base, ".") == 0 || strcmp(base, "..") == 0)
        return false;
    char dir[PATH_MAX + 1];
    int n = slash == nullptr
                ? snprintf(dir, sizeof(dir), ".")
                : (slash == path
                       ? snprintf(dir, sizeof(dir), "/")
                       : snprintf(dir, sizeof(dir), "%.*s", static_cast<int>(slash - path), path));
    if (n < 0 || static_cast<size_t>(n) >= sizeof(dir))
        return false;
    char real_dir[PATH_MAX + 1];
    if (realpath(dir, real_dir) == nullptr)
        return false;
    const char *sep = strcmp(real_dir, "/") == 0 ? "" : "/";
    n = snprintf(real_path, sizeof(real_path), "%s%s%s", real_dir, sep, base);
    if (n < 0 || static_cast<size_t>(n) >= sizeof(real_path)) {
        errno = ENAMETOOLONG;
        return false;
    }
    return true;
}

int LockedConf::open(const char *path, StoreOp op)
{
    static const char *const kVerb[] = {"read", "write", "delete"};
    const size_t path_len = strnlen(path, kPathMax + 1);
    char real_path[PATH_MAX + 1] = {};
    if (path_len > kPathMax || !resolve_path(path, real_path)) {
        DRV_ERR("%s path_len[%u] > PATH_MAX or conf_path is invalid, err[%d]",
                kVerb[static_cast<int>(op)], static_cast<unsigned>(path_len), errno);
        return kErrSysNull;
    }

    stream_ = fopen(real_path, op == StoreOp::kRead ? "r" : "r+");
    if (stream_ == nullptr) {
        if (op == StoreOp::kRead)
            DRV_ERR("Open configure file fail errno[%d] real_conf_path[%s]", errno, real_path);
        else if (op == StoreOp::kWrite)
            DRV_ERR("Open read configure fail! errno[%d]", errno);
        else
            DRV_ERR("Open configure file fail! errno[%d], real_conf_path[%s]", errno, real_path);
        return op_error(op);
    }

    const int fd = fileno(stream_);
    int ret = flock(fd, LOCK_EX);
    if (ret != 0) {
        if (op == StoreOp::kRead)
            DRV_ERR("vorn.conf lock fd[%d] failed! ret[%d] errno[%d]", fd, ret, errno);
        else if (op == StoreOp::kWrite)
            DRV_ERR("vorn.conf lock failed! ret:%d, fd:%d, errno:%d", ret, fd, errno);
        else
            DRV_ERR("vorn.conf lock fail! ret[%d] errno[%d]", ret, errno);
        return op_error(op);
    }
    ret = fseek(stream_, 0, SEEK_SET);
    if (ret != 0) {
        DRV_ERR("vorn.conf fseek fd[%d] failed! ret[%d] errno[%d]", fd, ret, errno);
        return op_error(op);
    }
    return 0;
}

// Yields the stream as fgets with a kCfgLineSize buffer would: each line, and a line longer
// than kCfgLineSize - 1 characters as pieces of that length. It scans large chunks with memchr
// instead of paying a library call per line, which dominates on a file of short lines.
class PieceReader
{
  public:
    explicit PieceReader(FILE *stream) : stream_(stream) {}
    PieceReader(const PieceReader &) = delete;
    PieceReader &operator=(const PieceReader &) = delete;

    /// The next piece in [*data, *data + *len), newline included; false at end of file.
    bool next(const char **data, size_t *len);
    /// True when the scan ended on a read error rather than at the end of the file.
    bool failed() const { return failed_; }

  private:
    FILE *stream_;
    size_t begin_ = 0;
    size_t end_ = 0;
    bool eof_ = false;
    bool failed_ = false;
    char buf_[kChunkSize];
};

bool PieceReader::next(const char **data, size_t *len)
{
    constexpr size_t kPiece = kCfgLineSize - 1;
    for (;;) {
        const size_t avail = end_ - begin_;
        const size_t window = avail < kPiece ? avail : kPiece;
        const char *start = buf_ + begin_;
        const char *nl = static_cast<const char *>(memchr(start, '\n', window));
        if (nl != nullptr || avail >= kPiece || (eof_ && avail > 0)) {
            *data = start;
            *len = nl != nullptr ? static_cast<size_t>(nl - start) + 1 : window;
            begin_ += *len;
            return true;
        }
        if (eof_)
            return false;
        memmove(buf_, start, avail);
        begin_ = 0;
        end_ = avail;
        const size_t got = fread_unlocked(buf_ + end_, 1, sizeof(buf_) - end_, stream_);
        end_ += got;
        // A read error ends the scan too, but is remembered: the caller must not take a file
        // it could not read (a directory in its place) for one that lacks the key, nor
        // rewrite it from the part it read.
        if (got == 0) {
            eof_ = true;
            failed_ = ferror(stream_) != 0;
        }
    }
}

// "<item>_<phy_id>" into key; 12289 when it does not fit.
int build_key(uint32_t phy_id, const char *item, char (&key)[kCfgLineSize])
{
    int n = snprintf(key, sizeof(key), "%s_%d", item, static_cast<int>(phy_id));
    if (n < 0 || static_cast<size_t>(n) >= sizeof(key)) {
        DRV_ERR("sprintf key fail[%d] item[%s] phy_id[%u]", n, item, phy_id);
        return kErrSysCopy;
    }
    return 0;
}

// Appends `len` bytes to the rewrite buffer, keeping room for the terminating zero.
int append_line(char *buffer, uint32_t buffer_size, size_t *used, const char *line, size_t len)
{
    if (*used + len + 1 > buffer_size) {
        fprintf(stderr, "vorn.conf size must smaller than 1M.\n");
        DRV_ERR("vorn.conf size must smaller than 1M.");
        return kErrSysCopy;
    }
    memcpy(buffer + *used, line, len);
    *used += len;
    buffer[*used] = '\0';
    return 0;
}

} // namespace

const char *cfg_conf_path()
{
    static const std::string path = sys_path(kVornConfPath);
    return path.c_str();
}

int cfg_read_conf(uint32_t phy_id, const char *item, char *value_out, uint32_t value_size)
{
    if (item == nullptr || value_out == nullptr)
        return kErrnoInval;
    char key[kCfgLineSize];
    int ret = build_key(phy_id, item, key);
    if (ret != 0)
        return ret;
    return cfg_inner_read_conf(cfg_conf_path(), key, value_out, value_size);
}

int cfg_write_conf(uint32_t phy_id, const char *item, const char *value)
{
    if (item == nullptr || value == nullptr)
        return kErrnoInval;
    char key[kCfgLineSize];
    int ret = build_key(phy_id, item, key);
    if (ret != 0)
        return ret;
    return cfg_inner_write_conf(cfg_conf_path(), key, value);
}

int cfg_del_conf(uint32_t phy_id, const char *item)
{
    if (item == nullptr)
        return kErrnoInval;
    char key[kCfgLineSize];
    int ret = build_key(phy_id, item, key);
    if (ret != 0)
        return ret;
    return cfg_inner_del_conf(cfg_conf_path(), key);
}

int cfg_inner_read_conf(const char *path, const char *key, char *value_out, uint32_t value_size)
{
    if (path == nullptr)
        return kErrSysNull;
    if (key == nullptr || value_out == nullptr)
        return kErrnoInval;
    LockedConf conf;
    int ret = conf.open(path, StoreOp::kRead);
    if (ret != 0)
        return ret;
    return cfg_inner_read_conf_byfd(conf.stream(), key, value_out, value_size);
}

int cfg_inner_write_conf(const char *path, const char *key, const char *value)
{
    if (path == nullptr)
        return kErrSysNull;
    if (key == nullptr || value == nullptr)
        return kErrnoInval;
    LockedConf conf;
    int ret = conf.open(path, StoreOp::kWrite);
    if (ret != 0)
        return ret;
    char *buffer = static_cast<char *>(calloc(kCfgFileMax, 1));
    if (buffer == nullptr) {
        DRV_ERR("calloc fail.");
        return kErrSysCopy;
    }
    ret = cfg_inner_write_conf_byfd(conf.stream(), key, value, buffer, kCfgFileMax);
    free(buffer);
    return ret;
}

int cfg_inner_del_conf(const char *path, const char *key)
{
    if (path == nullptr)
        return kErrSysNull;
    if (key == nullptr)
        return kErrnoInval;
    LockedConf conf;
    int ret = conf.open(path, StoreOp::kDelete);
    if (ret != 0)
        return ret;
    return cfg_inner_del_conf_byfd(conf.stream(), key);
}

int cfg_inner_read_conf_byfd(FILE *stream, const char *key, char *value_out, uint32_t value_size)
{
    if (stream == nullptr || key == nullptr || value_out == nullptr)
        return kErrnoInval;
    const size_t key_len = strlen(key);
    PieceReader reader(stream);
    const char *line = nullptr;
    size_t len = 0;
    while (reader.next(&line, &len)) {
        // A prefix match over the key only: the first line that begins with the key answers,
        // even when the key continues there (a read of "mtu_1" may meet "mtu_10=" first).
        if (line[0] == '#' || len < 3 || len < key_len || memcmp(line, key, key_len) != 0)
            continue;
        const char *eq = static_cast<const char *>(memchr(line, '=', len));
        if (eq == nullptr)
            continue;
        if (line[len - 1] == '\n')
            --len;

        const char *value = eq + 1;
        const size_t value_len = static_cast<size_t>(line + len - value);
        if (value_len >= value_size) {
            DRV_ERR("strcpy_s err[%d], len:%u", ERANGE, value_size);
            return kErrSysCopy;
        }
        memcpy(value_out, value, value_len);
        value_out[value_len] = '\0';
        return 0;
    }
    if (reader.failed()) {
        DRV_ERR("vorn.conf read fail errno[%d]", errno);
        return kErrSysRead;
    }
    return kErrSysNotFound;
}

int cfg_inner_write_conf_byfd(FILE *stream, const char *key, const char *value, char *buffer,
                              uint32_t buffer_size)
{
    if (stream == nullptr || key == nullptr || value == nullptr)
        return kErrnoInval;
    if (buffer == nullptr || buffer_size == 0)
        return kErrSysNull;
    const size_t key_len = strlen(key);
    size_t used = 0;
    buffer[0] = '\0';

    PieceReader reader(stream);
    const char *line = nullptr;
    size_t len = 0;
    while (reader.next(&line, &len)) {
        // Exact key match: "mtu_1=" replaces only mtu_1, never mtu_10.
        if (len > key_len && memcmp(line, key, key_len) == 0 && line[key_len] == '=')
            continue;
        int ret = append_line(buffer, buffer_size, &used, line, len);
        if (ret != 0)
            return ret;
    }
    if (reader.failed()) {
        DRV_ERR("vorn.conf read fail errno[%d]", errno);
        return kErrSysWrite;
    }

    // A last line without its newline (a hand-edited file) gets one: else the new line would
    // be glued to it, and both would be lost.
    if (used > 0 && buffer[used - 1] != '\n') {
        int ret = append_line(buffer, buffer_size, &used, "\n", 1);
        if (ret != 0)
            return ret;
    }

    char new_line[kCfgLineSize];
    int n = snprintf(new_line, sizeof(new_line), "%s=%s\n", key, value);
    if (n < 0 || static_cast<size_t>(n) >= sizeof(new_line)) {
        DRV_ERR("sprintf str op fail[%d] conf_name[%s] conf_value[%s]!", n, key, value);
        return kErrSysCopy;
    }
    int ret = append_line(buffer, buffer_size, &used, new_line, static_cast<size_t>(n));
    if (ret != 0)
        return ret;

    // Rewritten in place: other processes wait on this very inode's lock.
    const int fd = fileno(stream);
    ret = ftruncate(fd, 0);
    if (ret != 0) {
        DRV_ERR("vorn.conf ftruncate fail! ret[%d] errno[%d]", ret, errno);
        return kErrSysWrite;
    }
    ret = fseek(stream, 0, SEEK_SET);
    if (ret != 0) {
        DRV_ERR("vorn.conf fseek fd[%d] failed! ret[%d] errno[%d]", fd, ret, errno);
        return kErrSysWrite;
    }
    // Written by length, not as a C string: a stray zero byte in a damaged file must not cut
    // off the lines after it, the new one included.
    const size_t written = fwrite(buffer, 1, used, stream);
    if (written != used || fflush(stream) != 0)
        DRV_ERR("fputs fail, ret_val:%d, fd:%d, errno:%d", static_cast<int>(written), fd, errno);
    return 0;
}

int cfg_inner_del_conf_byfd(FILE *stream, const char *key)
{
    if (stream == nullptr || key == nullptr)
        return kErrnoInval;
    const int fd = fileno(stream);
    long read_pos = 0;
    long write_pos = 0;
    char line[kCfgLineSize];

    for (;;) {
        if (fgets(line, sizeof(line), stream) == nullptr) {
            // A read error is no end of file: cutting there would drop every line not read.
            if (ferror(stream) != 0) {
                DRV_ERR("vorn.conf read fail fd[%d] errno[%d]", fd, errno);
                return kErrSysDelete;
            }
            break;
        }
        // The bytes fgets consumed, counted by position: a zero byte inside the line would make
        // strlen short and shift every later line.
        const long after = ftell(stream);
        if (after < read_pos) {
            DRV_ERR("fseek fd[%d] failed! ret[%d] errno[%d]", fd, static_cast<int>(after), errno);
            return kErrSysDelete;
        }
        const size_t len = static_cast<size_t>(after - read_pos);
        const bool moved = read_pos != write_pos;
        if (moved) {
            int ret = fseek(stream, write_pos, SEEK_SET);
            if (ret != 0) {
                DRV_ERR("fseek fd[%d] failed! ret[%d] errno[%d]", fd, ret, errno);
                return kErrSysDelete;
            }
            if (fwrite(line, 1, len, stream) != len) {
                DRV_ERR("fputs fail, fd:%d, errno:%d", fd, errno);
                clearerr(stream);  // logged only; the error flag is kept for read errors
            }
        }
        // Substring match: the key anywhere in the line drops it (mtu_1 also drops mtu_10).
        if (strstr(line, key) == nullptr) {
            read_pos += static_cast<long>(len);
            write_pos += static_cast<long>(len);
        } else {
            read_pos += static_cast<long>(len);
        }
        // Without a write in between the stream already stands at the read position.
        if (moved) {
            int ret = fseek(stream, read_pos, SEEK_SET);
            if (ret != 0) {
                DRV_ERR("fseek fd[%d] failed! ret[%d] errno[%d]", fd, ret, errno);
                return kErrSysDelete;
            }
        }
    }

    if (fflush(stream) != 0)
        DRV_ERR("fflush fail, fd:%d, errno:%d", fd, errno);
    int ret = ftruncate(fd, write_pos);
    if (ret != 0)
        DRV_ERR("ftruncate fail, ret_val:%d, fd:%d, errno:%d", ret, fd, errno);
    return 0;
}
