// Files that only the tool's user may read: the host TLS store and the key store. Directories
// are 0700 and files 0600, owned by the effective user (root in production); a file or
// directory that is not so is refused, never repaired. Every write goes to a temporary file that
// is synced and renamed over the target, and the directory is synced after, so that a killed run
// or a full disk leaves the old content or the new one.
#pragma once

#include <cstddef>
#include <string>

/// Makes `dir` and its missing parents (mode 0700), then checks that `dir` is a directory (not a
/// link) owned by the effective user with no access for group or others. 0 or a negated errno
/// (-EACCES for a directory that is not private).
[[nodiscard]] int private_dir(const std::string &dir);

/// Opens `path` read-only without following a link; it must be a regular file owned by the
/// effective user with no access for group or others. The descriptor, -ENOENT when absent,
/// -EACCES when not private, or another negated errno.
[[nodiscard]] int open_private_file(const std::string &path);

/// Reads the whole of `path` (opened as by open_private_file) into `data`, which must be exactly
/// its size: 0, -EBADMSG when the size differs, or the open's or read's negated errno.
[[nodiscard]] int read_private_file(const std::string &path, void *data, size_t len);

/// Replaces `path` with `len` bytes of `data` (mode 0600) through "<path>.tmp". 0 or a negated
/// errno; on failure the old file is untouched.
[[nodiscard]] int replace_private_file(const std::string &path, const void *data, size_t len);

/// Creates `path` with `len` bytes of `data` (mode 0600) unless it exists: a synced file without
/// a name (O_TMPFILE) is linked to it, which never replaces a file and leaves nothing behind when
/// the run is killed. 0, -EEXIST, or a negated errno.
[[nodiscard]] int create_private_file(const std::string &path, const void *data, size_t len);

/// Removes `path` and syncs its directory. 0 also when it did not exist.
[[nodiscard]] int remove_private_file(const std::string &path);
