// Private files of the host TLS store and the key store.
#include "tls/private_files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "log/driver_log.hpp"

namespace
{

bool is_private(const struct stat &st)
{
    return st.st_uid == geteuid() && (st.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

int write_all(int fd, const void *data, size_t len)
{
    const auto *p = static_cast<const char *>(data);
    while (len > 0) {
        const ssize_t n = write(fd, p, len);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return -errno;
        }
        p += n;
        len -= static_cast<size_t>(n);
    }
    return 0;
}

std::string dir_of(const std::string &path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

int sync_dir(const std::string &dir)
{
    const int dfd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd < 0)
        return -errno;
    const int ret = fsync(dfd) == 0 ? 0 : -errno;
    (void)close(dfd);
    return ret;
}

// Writes `data` to a new file `tmp` (0600) and syncs it. The file is removed on failure.
int write_synced(const std::string &tmp, const void *data, size_t len)
{
    if (unlink(tmp.c_str()) != 0 && errno != ENOENT)
        return -errno;
    const int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0)
        return -errno;
    int ret = write_all(fd, data, len);
    if (ret == 0 && fsync(fd) != 0)
        ret = -errno;
    if (close(fd) != 0 && ret == 0)
        ret = -errno;
    if (ret != 0) {
        DRV_ERR("write %s failed, ret:%d", tmp.c_str(), ret);
        (void)unlink(tmp.c_str());
    }
    return ret;
}

} // namespace

int private_dir(const std::string &dir)
{
    if (dir.empty() || dir[0] != '/')
        return -EINVAL;
    for (size_t at = dir.find('/', 1);; at = dir.find('/', at + 1)) {
        const std::string part = at == std::string::npos ? dir : dir.substr(0, at);
        if (mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) {
            DRV_ERR("mkdir %s failed, errno:%d", part.c_str(), errno);
            return -errno;
        }
        if (at == std::string::npos)
            break;
    }
    struct stat st {
    };
    if (lstat(dir.c_str(), &st) != 0)
        return -errno;
    if (!S_ISDIR(st.st_mode) || !is_private(st)) {
        DRV_ERR("%s is not a private directory (mode 0%o, uid %u), refused", dir.c_str(),
                static_cast<unsigned>(st.st_mode & 07777), static_cast<unsigned>(st.st_uid));
        return -EACCES;
    }
    return 0;
}

int open_private_file(const std::string &path)
{
    const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return errno == ELOOP ? -EACCES : -errno;
    struct stat st {
    };
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || !is_private(st)) {
        DRV_ERR("%s is not a private regular file, refused", path.c_str());
        (void)close(fd);
        return -EACCES;
    }
    return fd;
}

int read_private_file(const std::string &path, void *data, size_t len)
{
    const int fd = open_private_file(path);
    if (fd < 0)
        return fd;
    struct stat st {
    };
    int ret = 0;
    if (fstat(fd, &st) != 0)
        ret = -errno;
    else if (static_cast<size_t>(st.st_size) != len)
        ret = -EBADMSG;
    auto *p = static_cast<char *>(data);
    for (size_t done = 0; ret == 0 && done < len;) {
        const ssize_t n = read(fd, p + done, len - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            ret = n == 0 ? -EBADMSG : -errno;
        else
            done += static_cast<size_t>(n);
    }
    (void)close(fd);
    return ret;
}

int replace_private_file(const std::string &path, const void *data, size_t len)
{
    const std::string tmp = path + ".tmp";
    int ret = write_synced(tmp, data, len);
    if (ret != 0)
        return ret;
    if (rename(tmp.c_str(), path.c_str()) != 0) {
        ret = -errno;
        DRV_ERR("rename %s failed, errno:%d", tmp.c_str(), errno);
        (void)unlink(tmp.c_str());
        return ret;
    }
    return sync_dir(dir_of(path));
}

// The key is written into a file without a name, which gets one only once it is whole and
// synced: a run killed before leaves no file behind, not even a temporary one with key bytes.
int create_private_file(const std::string &path, const void *data, size_t len)
{
    const int fd = open(dir_of(path).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    if (fd < 0)
        return -errno;
    int ret = write_all(fd, data, len);
    if (ret == 0 && fsync(fd) != 0)
        ret = -errno;
    // The name is linked from the descriptor's own entry, which needs no privilege.
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    if (ret == 0 && linkat(AT_FDCWD, self.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) != 0)
        ret = -errno;
    if (close(fd) != 0 && ret == 0)
        ret = -errno;
    if (ret != 0)
        return ret;
    return sync_dir(dir_of(path));
}

int remove_private_file(const std::string &path)
{
    if (unlink(path.c_str()) != 0)
        return errno == ENOENT ? 0 : -errno;
    return sync_dir(dir_of(path));
}
