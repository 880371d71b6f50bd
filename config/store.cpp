// The configuration store: read, replace and delete key=value lines of /etc/vorn.conf, each
// under an exclusive flock, changes put in place by an atomic rename.
#include "config/store.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "base/paths.hpp"
#include "log/driver_log.hpp"

namespace
{

constexpr size_t kPathMax = 4096;
constexpr const char *kTmpSuffix = ".tmp";

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

const char *verb_of(ConfAccess access)
{
    switch (access) {
    case ConfAccess::kWrite:
        return "write";
    case ConfAccess::kDelete:
        return "delete";
    case ConfAccess::kRead:
    case ConfAccess::kWalk:
        break;
    }
    return "read";
}

int lock_exclusive(int fd)
{
    int ret;
    do {
        ret = flock(fd, LOCK_EX);
    } while (ret != 0 && errno == EINTR);
    return ret;
}

bool write_all(int fd, const char *data, size_t len)
{
    while (len > 0) {
        const ssize_t n = write(fd, data, len);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        data += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

bool sync_dir_of(const std::string &path)
{
    const size_t slash = path.rfind('/');
    const std::string dir =
        slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
    const int dfd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd < 0)
        return false;
    const bool ok = fsync(dfd) == 0;
    (void)close(dfd);
    return ok;
}

// The content of the live transaction, if any.
std::string *g_transaction = nullptr;

// Whether `piece` is a line of exactly `key` ("mtu_1=...", never "mtu_10=...").
bool is_line_of(std::string_view piece, std::string_view key)
{
    return piece.size() > key.size() && piece.starts_with(key) && piece[key.size()] == '=';
}

size_t find_from(std::string_view content, std::string_view needle, size_t from)
{
    if (from >= content.size())
        return std::string_view::npos;
    const void *hit =
        memmem(content.data() + from, content.size() - from, needle.data(), needle.size());
    return hit == nullptr ? std::string_view::npos
                          : static_cast<size_t>(static_cast<const char *>(hit) - content.data());
}

bool piece_has_eq(std::string_view piece)
{
    return piece.find('=') != std::string_view::npos;
}

// One-operation helpers behind cfg_inner_*.
int inner_op(const char *path, ConfAccess access, const char *key, auto &&op)
{
    if (path == nullptr)
        return kErrSysNull;
    if (key == nullptr)
        return kErrnoInval;
    ConfSession session(access);
    int ret = session.open(path);
    if (ret != 0)
        return ret;
    ret = op(session);
    if (ret != 0)
        return ret;
    return session.commit();
}

} // namespace

ConfSession::~ConfSession()
{
    if (fd_ >= 0 && close(fd_) != 0)
        DRV_ERR("Fclose fail. (ret_val=%d; errno=%d)", -1, errno);
}

int ConfSession::fail_code() const
{
    switch (access_) {
    case ConfAccess::kWrite:
        return kErrSysWrite;
    case ConfAccess::kDelete:
        return kErrSysDelete;
    case ConfAccess::kRead:
    case ConfAccess::kWalk:
        break;
    }
    return kErrSysRead;
}

int ConfSession::open(const char *path)
{
    if (path == nullptr)
        return kErrSysNull;
    if (g_transaction != nullptr && strcmp(path, cfg_conf_path()) == 0) {
        path_ = path;
        content_ = *g_transaction;
        in_transaction_ = true;
        return 0;
    }
    const size_t path_len = strnlen(path, kPathMax + 1);
    char real_path[PATH_MAX + 1] = {};
    if (path_len > kPathMax || !resolve_path(path, real_path)) {
        // The route walk words its failure without the length.
        if (access_ == ConfAccess::kWalk)
            DRV_ERR("read path_len > PATH_MAX or conf_path is invalid, err[%d]", errno);
        else
            DRV_ERR("%s path_len[%u] > PATH_MAX or conf_path is invalid, err[%d]", verb_of(access_),
                    static_cast<unsigned>(path_len), errno);
        return kErrSysNull;
    }
    path_ = real_path;
    // Each new attempt follows a change that another run completed while this one waited, and
    // waits again on the file that change left: the loop always makes progress.
    for (;;) {
        bool replaced = false;
        const int ret = open_once(&replaced);
        if (ret != 0 || !replaced)
            return ret;
    }
}

// Another run may have replaced the file while this one waited for the lock of the old one:
// then the descriptor is no longer the file at the path, and the open starts again.
int ConfSession::open_once(bool *replaced)
{
    const bool readonly = access_ == ConfAccess::kRead;
    fd_ = ::open(path_.c_str(), (readonly ? O_RDONLY : O_RDWR) | O_CLOEXEC | O_NOCTTY);
    if (fd_ < 0) {
        if (access_ == ConfAccess::kWrite)
            DRV_ERR("Open read configure fail! errno[%d]", errno);
        else if (access_ == ConfAccess::kDelete)
            DRV_ERR("Open configure file fail! errno[%d], real_conf_path[%s]", errno,
                    path_.c_str());
        else
            DRV_ERR("Open configure file fail errno[%d] real_conf_path[%s]", errno, path_.c_str());
        return fail_code();
    }
    const int ret = lock_exclusive(fd_);
    if (ret != 0) {
        if (access_ == ConfAccess::kWrite)
            DRV_ERR("vorn.conf lock failed! ret:%d, fd:%d, errno:%d", ret, fd_, errno);
        else if (access_ == ConfAccess::kDelete)
            DRV_ERR("vorn.conf lock fail! ret[%d] errno[%d]", ret, errno);
        else
            DRV_ERR("vorn.conf lock fd[%d] failed! ret[%d] errno[%d]", fd_, ret, errno);
        return fail_code();
    }
    struct stat held {
    };
    struct stat named {
    };
    if (fstat(fd_, &held) != 0) {
        DRV_ERR("vorn.conf fstat fd[%d] failed! errno[%d]", fd_, errno);
        return fail_code();
    }
    if (stat(path_.c_str(), &named) != 0 || named.st_dev != held.st_dev ||
        named.st_ino != held.st_ino) {
        (void)close(fd_);
        fd_ = -1;
        *replaced = true;
        return 0;
    }
    uid_ = held.st_uid;
    gid_ = held.st_gid;
    mode_ = held.st_mode & 07777;
    return load();
}

// A read error is no end of file: a file that could not be read whole (a directory in its
// place) must be taken neither for one that lacks the key nor as the base of a rewrite.
int ConfSession::load()
{
    content_.clear();
    char chunk[64 * 1024];
    for (;;) {
        const ssize_t n = ::read(fd_, chunk, sizeof(chunk));
        if (n == 0)
            return 0;
        if (n < 0) {
            if (errno == EINTR)
                continue;
            DRV_ERR("vorn.conf read fail errno[%d]", errno);
            return fail_code();
        }
        content_.append(chunk, static_cast<size_t>(n));
    }
}

std::string_view cfg_find_answer(std::string_view content, std::string_view key, StemIndex *index)
{
    std::string_view found;
    (void)cfg_for_each_piece_with(
        content, key,
        [&](std::string_view piece) {
            // A prefix match over the key only: the first line that begins with the key answers,
            // even when the key continues there (a read of "mtu_1" may meet "mtu_10=" first).
            if (piece[0] == '#' || piece.size() < 3 || !piece.starts_with(key) ||
                !piece_has_eq(piece))
                return 0;
            // The line ends at a zero byte before its newline, as a C string would.
            piece = piece.substr(0, strnlen(piece.data(), piece.size()));
            if (!piece_has_eq(piece))
                return 0;
            found = piece;
            return 1;
        },
        index);
    return found;
}

namespace
{

// The prefix read of `key` in `content`, into `value_out`.
int read_in(std::string_view content, const char *key, char *value_out, uint32_t value_size,
            StemIndex *index = nullptr)
{
    if (key == nullptr || value_out == nullptr)
        return kErrnoInval;
    std::string_view piece = cfg_find_answer(content, key, index);
    if (piece.empty())
        return kErrSysNotFound;
    if (piece.back() == '\n')
        piece.remove_suffix(1);
    const size_t eq = piece.find('=');
    const char *found = piece.data() + eq + 1;
    const size_t found_len = piece.size() - eq - 1;
    if (found_len >= value_size) {
        DRV_ERR("strcpy_s err[%d], len:%u", ERANGE, value_size);
        return kErrSysCopy;
    }
    memcpy(value_out, found, found_len);
    value_out[found_len] = '\0';
    return 0;
}

int read_item_in(std::string_view content, uint32_t phy_id, const char *item, char *value_out,
                 uint32_t value_size, StemIndex *index = nullptr)
{
    if (item == nullptr || value_out == nullptr)
        return kErrnoInval;
    char key[kCfgLineSize];
    const int ret = cfg_build_key(phy_id, item, key);
    return ret != 0 ? ret : read_in(content, key, value_out, value_size, index);
}

} // namespace

int ConfSession::read(const char *key, char *value_out, uint32_t value_size) const
{
    return read_in(content_, key, value_out, value_size);
}

namespace
{

// "key=value\n" into `line`; its length, or -1 when it does not fit a line buffer.
int format_line(char (&line)[kCfgLineSize], const char *key, const char *value)
{
    const int n = snprintf(line, sizeof(line), "%s=%s\n", key, value);
    if (n < 0 || static_cast<size_t>(n) >= sizeof(line)) {
        DRV_ERR("sprintf str op fail[%d] conf_name[%s] conf_value[%s]!", n, key, value);
        return -1;
    }
    return n;
}

// Appends `line` to `next`, which holds the kept lines, and takes it as the new content unless
// the file would reach its size limit.
int finish_rewrite(std::string *content, std::string &&next, const char *line, size_t len)
{
    // A last line without its newline (a hand-edited file) gets one: else the new line would be
    // glued to it, and both would be lost.
    if (!next.empty() && next.back() != '\n')
        next.push_back('\n');
    next.append(line, len);
    if (next.size() + 1 > kCfgFileMax) {
        fprintf(stderr, "vorn.conf size must smaller than 1M.\n");
        DRV_ERR("vorn.conf size must smaller than 1M.");
        return kErrSysCopy;
    }
    *content = std::move(next);
    return 0;
}

} // namespace

int ConfSession::write(const char *key, const char *value)
{
    return add_line(key, value, true);
}

int ConfSession::append(const char *key, const char *value)
{
    return add_line(key, value, false);
}

int ConfSession::add_line(const char *key, const char *value, bool replace)
{
    if (key == nullptr || value == nullptr)
        return kErrnoInval;
    char line[kCfgLineSize];
    const int n = format_line(line, key, value);
    if (n < 0)
        return kErrSysCopy;
    const std::string_view wanted(key);
    std::string next;
    next.reserve(content_.size() + static_cast<size_t>(n) + 1);
    (void)cfg_for_each_piece(content_, [&](std::string_view piece) {
        // Exact key match: "mtu_1=" replaces only mtu_1, never mtu_10.
        if (!replace || !is_line_of(piece, wanted))
            next.append(piece);
        return 0;
    });
    const int ret = finish_rewrite(&content_, std::move(next), line, static_cast<size_t>(n));
    dirty_ = dirty_ || ret == 0;
    return ret;
}

int ConfSession::remove(const char *key)
{
    if (key == nullptr)
        return kErrnoInval;
    const std::string_view wanted(key);
    std::string next;
    next.reserve(content_.size());
    (void)cfg_for_each_piece(content_, [&](std::string_view piece) {
        if (!is_line_of(piece, wanted))
            next.append(piece);
        return 0;
    });
    if (next.size() != content_.size()) {
        content_ = std::move(next);
        dirty_ = true;
    }
    return 0;
}

int ConfSession::del(const char *key)
{
    if (key == nullptr)
        return kErrnoInval;
    const std::string_view wanted(key);
    std::string next;
    bool removed = false;
    (void)cfg_for_each_piece(content_, [&](std::string_view piece) {
        // Substring match: the key anywhere in the line drops it (mtu_1 also drops mtu_10, and
        // a line whose value contains the key). The line ends at a zero byte for the search.
        const std::string_view text(piece.data(), strnlen(piece.data(), piece.size()));
        if (text.find(wanted) != std::string_view::npos)
            removed = true;
        else
            next.append(piece);
        return 0;
    });
    if (removed) {
        content_ = std::move(next);
        dirty_ = true;
    }
    return 0;
}

int ConfSession::read_item(uint32_t phy_id, const char *item, char *value_out,
                           uint32_t value_size) const
{
    return read_item_in(content_, phy_id, item, value_out, value_size);
}

int ConfSession::write_item(uint32_t phy_id, const char *item, const char *value)
{
    if (item == nullptr || value == nullptr)
        return kErrnoInval;
    char key[kCfgLineSize];
    const int ret = cfg_build_key(phy_id, item, key);
    return ret != 0 ? ret : write(key, value);
}

int ConfSession::del_item(uint32_t phy_id, const char *item)
{
    if (item == nullptr)
        return kErrnoInval;
    char key[kCfgLineSize];
    const int ret = cfg_build_key(phy_id, item, key);
    return ret != 0 ? ret : del(key);
}

// The new content goes to "<file>.tmp" beside the file. Only the holder of the file's lock
// writes it, so the one name serves every run, and the leftover of a killed run is removed by
// the next. The temporary file is locked before it takes the file's place: a run that opens the
// path after the rename waits for this session as it would have on the old file.
int ConfSession::commit()
{
    if (!dirty_)
        return 0;
    const int code = access_ == ConfAccess::kWrite ? kErrSysWrite : kErrSysDelete;
    if (in_transaction_) {
        // Opened on a transaction's copy: it holds neither the file nor its lock.
        if (g_transaction == nullptr) {
            DRV_ERR("vorn.conf changed in a session of a transaction that has ended");
            return code;
        }
        *g_transaction = content_;
        dirty_ = false;
        return 0;
    }
    const std::string tmp = path_ + kTmpSuffix;
    if (unlink(tmp.c_str()) != 0 && errno != ENOENT) {
        DRV_ERR("remove %s fail, errno:%d", tmp.c_str(), errno);
        return code;
    }
    const int tfd =
        ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode_ & 0600);
    if (tfd < 0) {
        DRV_ERR("open %s fail, errno:%d", tmp.c_str(), errno);
        return code;
    }
    const char *step = nullptr;
    if (flock(tfd, LOCK_EX | LOCK_NB) != 0)
        step = "flock";
    else if ((uid_ != geteuid() || gid_ != getegid()) && fchown(tfd, uid_, gid_) != 0)
        step = "fchown";
    else if (fchmod(tfd, mode_) != 0)
        step = "fchmod";
    else if (!write_all(tfd, content_.data(), content_.size()))
        step = "fputs";
    else if (fsync(tfd) != 0)
        step = "fsync";
    else if (rename(tmp.c_str(), path_.c_str()) != 0)
        step = "rename";
    if (step != nullptr) {
        DRV_ERR("%s fail, ret_val:%d, fd:%d, errno:%d", step, -1, tfd, errno);
        (void)unlink(tmp.c_str());
        (void)close(tfd);
        return code;
    }
    // From here the file at the path is the new one, and this session holds its lock.
    (void)close(fd_);
    fd_ = tfd;
    dirty_ = false;
    if (!sync_dir_of(path_)) {
        DRV_ERR("fsync dir of %s fail, errno:%d", path_.c_str(), errno);
        return code;
    }
    return 0;
}

size_t StemIndex::find_next(std::string_view content, std::string_view needle, size_t from)
{
    const std::string_view stem = needle.substr(0, needle.find_first_of("0123456789"));
    if (stem.empty())
        return find_from(content, needle, from);
    auto it = hits_.find(stem);
    if (it == hits_.end()) {
        std::vector<size_t> hits;
        for (size_t at = find_from(content, stem, 0); at != std::string_view::npos;
             at = find_from(content, stem, at + 1))
            hits.push_back(at);
        it = hits_.emplace(std::string(stem), std::move(hits)).first;
    }
    for (auto at = std::lower_bound(it->second.begin(), it->second.end(), from);
         at != it->second.end(); ++at) {
        if (content.compare(*at, needle.size(), needle) == 0)
            return *at;
    }
    return std::string_view::npos;
}

size_t cfg_find_next(std::string_view content, std::string_view needle, size_t from,
                     StemIndex *index)
{
    return index != nullptr ? index->find_next(content, needle, from)
                            : find_from(content, needle, from);
}

int ConfView::open(const char *path)
{
    index_ = StemIndex{};
    ConfSession session(ConfAccess::kRead);
    ret_ = session.open(path);
    content_ = ret_ == 0 ? std::string(session.content()) : std::string();
    return ret_;
}

int ConfView::read_item(uint32_t phy_id, const char *item, char *value_out,
                        uint32_t value_size) const
{
    return ret_ != 0 ? ret_ : read_item_in(content_, phy_id, item, value_out, value_size, &index_);
}

int ConfTransaction::begin()
{
    if (g_transaction != nullptr)
        return kErrSysWrite;
    const int ret = session_.open();
    if (ret != 0)
        return ret;
    original_ = std::string(session_.content());
    content_ = original_;
    g_transaction = &content_;
    active_ = true;
    return 0;
}

int ConfTransaction::commit()
{
    if (!active_)
        return kErrSysWrite;
    g_transaction = nullptr;
    active_ = false;
    if (content_ == original_)
        return 0;
    session_.content_ = content_;
    session_.dirty_ = true;
    return session_.commit();
}

ConfTransaction::~ConfTransaction()
{
    if (active_)
        g_transaction = nullptr;
}

const char *cfg_conf_path()
{
    static const std::string path = sys_path(kVornConfPath);
    return path.c_str();
}

int cfg_build_key(uint32_t phy_id, const char *item, char (&key)[kCfgLineSize])
{
    const int n = snprintf(key, sizeof(key), "%s_%d", item, static_cast<int>(phy_id));
    if (n < 0 || static_cast<size_t>(n) >= sizeof(key)) {
        DRV_ERR("sprintf key fail[%d] item[%s] phy_id[%u]", n, item, phy_id);
        return kErrSysCopy;
    }
    return 0;
}

int cfg_read_conf(uint32_t phy_id, const char *item, char *value_out, uint32_t value_size)
{
    if (item == nullptr || value_out == nullptr)
        return kErrnoInval;
    char key[kCfgLineSize];
    const int ret = cfg_build_key(phy_id, item, key);
    return ret != 0 ? ret : cfg_inner_read_conf(cfg_conf_path(), key, value_out, value_size);
}

int cfg_write_conf(uint32_t phy_id, const char *item, const char *value)
{
    if (item == nullptr || value == nullptr)
        return kErrnoInval;
    char key[kCfgLineSize];
    const int ret = cfg_build_key(phy_id, item, key);
    return ret != 0 ? ret : cfg_inner_write_conf(cfg_conf_path(), key, value);
}

int cfg_del_conf(uint32_t phy_id, const char *item)
{
    if (item == nullptr)
        return kErrnoInval;
    char key[kCfgLineSize];
    const int ret = cfg_build_key(phy_id, item, key);
    return ret != 0 ? ret : cfg_inner_del_conf(cfg_conf_path(), key);
}

int cfg_inner_read_conf(const char *path, const char *key, char *value_out, uint32_t value_size)
{
    if (value_out == nullptr)
        return kErrnoInval;
    return inner_op(path, ConfAccess::kRead, key,
                    [&](ConfSession &s) { return s.read(key, value_out, value_size); });
}

int cfg_inner_write_conf(const char *path, const char *key, const char *value)
{
    if (value == nullptr)
        return kErrnoInval;
    return inner_op(path, ConfAccess::kWrite, key,
                    [&](ConfSession &s) { return s.write(key, value); });
}

int cfg_inner_del_conf(const char *path, const char *key)
{
    return inner_op(path, ConfAccess::kDelete, key, [&](ConfSession &s) { return s.del(key); });
}
