// The configuration store: key=value lines of /etc/vorn.conf under an exclusive file lock.
//
// Keys are "<item>_<phy_id>". A read answers with the first line that begins with the key (a
// prefix match: a read of mtu_1 may meet mtu_10=... first); a write replaces the lines whose key
// is exactly the key and appends the new line at the end; a delete removes every line that
// contains the key anywhere. Lines longer than 383 characters are handled as 383-byte pieces.
//
// A change never rewrites the file in place: the new content goes to a temporary file beside it
// (same owner and mode), which is synced and renamed over the file, and the directory is synced.
// A run killed at any instant, a full disk or a file-size limit leave the file as it was or as
// the finished change leaves it.
//
// Result codes are the tool's own (base/result.hpp): kErrSysCopy (a copy, the size limit,
// memory), kErrSysNull (a path too long or not resolvable), kErrSysWrite, kErrSysRead and
// kErrSysDelete (the file cannot be opened, locked, read or replaced), kErrSysNotFound, and
// kErrnoInval for a missing argument.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.hpp"

inline constexpr unsigned kCfgLineSize = 384;    ///< line buffer; longer lines in pieces
inline constexpr unsigned kCfgFileMax = 1024000; ///< whole file, terminating zero included

/// Path of the configuration file ("/etc/vorn.conf", under the test root in a test build).
const char *cfg_conf_path();

/// Builds the key "<item>_<phy_id>" into `key`. 0, or kErrSysCopy when it does not fit.
[[nodiscard]] int cfg_build_key(uint32_t phy_id, const char *item, char (&key)[kCfgLineSize]);

/// Reads the value of "<item>_<phy_id>" into value_out; kErrSysNotFound when absent.
[[nodiscard]] int cfg_read_conf(uint32_t phy_id, const char *item, char *value_out,
                                uint32_t value_size);
/// Replaces (or adds) the line "<item>_<phy_id>=<value>"; the line moves to the end.
[[nodiscard]] int cfg_write_conf(uint32_t phy_id, const char *item, const char *value);
/// Removes every line that contains "<item>_<phy_id>".
[[nodiscard]] int cfg_del_conf(uint32_t phy_id, const char *item);

/// The same three on an explicit path and a key already built.
[[nodiscard]] int cfg_inner_read_conf(const char *path, const char *key, char *value_out,
                                      uint32_t value_size);
[[nodiscard]] int cfg_inner_write_conf(const char *path, const char *key, const char *value);
[[nodiscard]] int cfg_inner_del_conf(const char *path, const char *key);

/// What a session is opened for. It picks the codes and log texts of its failures: a read
/// fails with kErrSysRead, a write with kErrSysWrite, a delete with kErrSysDelete; a walk opens
/// as a read and saves its changes as a delete.
enum class ConfAccess : uint8_t { kRead, kWrite, kDelete, kWalk };

/// The configuration file held open under its exclusive lock for one or more operations. The
/// content is read once at open; operations work on it in memory, and commit() puts it in place
/// as one atomic replacement (the session keeps the lock, on the new file, until it ends).
/// Every change through the store goes through a session.
class ConfSession
{
  public:
    explicit ConfSession(ConfAccess access) : access_(access) {}
    ~ConfSession();
    ConfSession(const ConfSession &) = delete;
    ConfSession &operator=(const ConfSession &) = delete;

    /// Resolves `path`, opens it (never creating it), locks it and reads it. An opener that
    /// gets the lock on a file that another run has meanwhile replaced opens again. 0, or the
    /// access's code.
    [[nodiscard]] int open(const char *path);
    [[nodiscard]] int open() { return open(cfg_conf_path()); }

    /// Prefix read of `key` (first line in file order wins). 0, kErrSysNotFound, or
    /// kErrSysCopy when the value does not fit `value_size` with its terminator.
    [[nodiscard]] int read(const char *key, char *value_out, uint32_t value_size) const;
    /// Replaces the lines of exactly `key` by "key=value" at the end. 0 or kErrSysCopy (the
    /// line does not fit its buffer, or the file would reach the size limit: the content is
    /// then unchanged).
    [[nodiscard]] int write(const char *key, const char *value);
    /// Removes every line that contains `key`. Always 0.
    int del(const char *key);
    /// Removes the lines of exactly `key` ("mtu_1=", never "mtu_10="). Always 0.
    int remove(const char *key);
    /// Appends "key=value" at the end and keeps the lines of the same key: the form of saved
    /// command lines, of which a device has many under one key. 0 or kErrSysCopy, as write().
    [[nodiscard]] int append(const char *key, const char *value);

    /// The item forms: the key is "<item>_<phy_id>".
    [[nodiscard]] int read_item(uint32_t phy_id, const char *item, char *value_out,
                                uint32_t value_size) const;
    [[nodiscard]] int write_item(uint32_t phy_id, const char *item, const char *value);
    [[nodiscard]] int del_item(uint32_t phy_id, const char *item);

    /// The content as it stands in the session (changes included).
    [[nodiscard]] std::string_view content() const { return content_; }
    /// Whether the session holds changes that commit() has not put in place yet.
    [[nodiscard]] bool dirty() const { return dirty_; }

    /// Puts the changed content in place: a temporary file beside the file, synced, renamed
    /// over it, the directory synced. Nothing to do without changes. 0, or the access's code
    /// when any step failed: the file is then as it was, except when only the directory's sync
    /// failed (the new file is in place but may not survive a crash, which is no success).
    [[nodiscard]] int commit();

  private:
    [[nodiscard]] int open_once(bool *replaced);
    [[nodiscard]] int add_line(const char *key, const char *value, bool replace);
    [[nodiscard]] int load();
    [[nodiscard]] int fail_code() const;

    friend class ConfTransaction;
    ConfAccess access_;
    int fd_ = -1;
    std::string path_; ///< the resolved path
    std::string content_;
    bool dirty_ = false;
    bool in_transaction_ = false; ///< opened on the content of the live transaction
    uid_t uid_ = 0;
    gid_t gid_ = 0;
    mode_t mode_ = 0;
};

/// Where the stems of searched needles stand in one content that does not change: the part of
/// a needle before its first digit ("arp_" of "arp_3="), found on the first search and kept, so
/// that the same search for each device costs one look.
class StemIndex
{
  public:
    /// Where `needle` next stands in `content` at or after `from`; npos when nowhere.
    [[nodiscard]] size_t find_next(std::string_view content, std::string_view needle, size_t from);

  private:
    std::map<std::string, std::vector<size_t>, std::less<>> hits_;
};

/// A read-only view of the configuration file: its content, read once under the file's lock,
/// and reads of it. It cannot write. A run that reads many items (the replay of a device, while
/// the setting lock keeps every writer out) reads them all from one view.
class ConfView
{
  public:
    /// Reads the file at `path`. 0, or the code of a read session that cannot open it; every
    /// read of the view then fails with that code.
    [[nodiscard]] int open(const char *path);
    [[nodiscard]] int open() { return open(cfg_conf_path()); }

    /// The item read of ConfSession: the first line that begins with "<item>_<phy_id>".
    [[nodiscard]] int read_item(uint32_t phy_id, const char *item, char *value_out,
                                uint32_t value_size) const;
    /// 0 when the file was read, else the code of its open.
    [[nodiscard]] int status() const { return ret_; }
    [[nodiscard]] std::string_view content() const { return content_; }
    /// The index of the searches in the content: the content never changes while the view lives.
    [[nodiscard]] StemIndex *index() const { return &index_; }

  private:
    std::string content_;
    int ret_ = kErrSysRead;
    mutable StemIndex index_;
};

/// While a transaction lives, every session on the configuration file (reads, writes, deletes)
/// works on one copy of it, read when the transaction began, and the file stays locked. Nothing
/// reaches the file before commit(), which puts the whole new content in place in one atomic
/// replacement: a run killed or failing before it leaves the file as it was, after it as the
/// transaction left it. For a run that makes many changes as one (vornctl apply).
class ConfTransaction
{
  public:
    ConfTransaction() = default;
    ~ConfTransaction();
    ConfTransaction(const ConfTransaction &) = delete;
    ConfTransaction &operator=(const ConfTransaction &) = delete;

    /// Opens and locks the file and starts the transaction. 0, or the store's write code.
    [[nodiscard]] int begin();
    /// The content as the file held it when the transaction began.
    [[nodiscard]] std::string_view original() const { return original_; }
    /// The content with the changes made in the transaction.
    [[nodiscard]] std::string_view content() const { return content_; }
    /// Puts the changes in place (nothing to do without any) and ends the transaction. 0, or
    /// the store's write code when the file could not be replaced (it is then as it was).
    [[nodiscard]] int commit();

  private:
    ConfSession session_{ConfAccess::kWrite};
    std::string original_;
    std::string content_;
    bool active_ = false;
};

/// Calls `fn(piece)` for each line of `content` in order as a 384-byte line buffer reads it:
/// each line with its newline, and a line longer than 383 characters as pieces of that length.
/// Stops at the first non-zero result of `fn` and returns it; 0 when every piece was seen.
template <typename Fn> int cfg_for_each_piece(std::string_view content, Fn &&fn)
{
    constexpr size_t kPiece = kCfgLineSize - 1;
    while (!content.empty()) {
        const size_t window = content.size() < kPiece ? content.size() : kPiece;
        const size_t nl = content.substr(0, window).find('\n');
        const size_t len = nl != std::string_view::npos ? nl + 1 : window;
        const int ret = fn(content.substr(0, len));
        if (ret != 0)
            return ret;
        content.remove_prefix(len);
    }
    return 0;
}

/// Where `needle` next stands in `content` at or after `from`; npos when nowhere. With an index
/// of that content (a view's), through the index.
[[nodiscard]] size_t cfg_find_next(std::string_view content, std::string_view needle, size_t from,
                                   StemIndex *index);

/// As cfg_for_each_piece, for the pieces only whose text (up to a zero byte) contains `needle`:
/// the others are passed over unseen, found by cfg_find_next rather than a look at each line,
/// which keeps the walks of a large file cheap. An empty needle: every piece.
template <typename Fn>
int cfg_for_each_piece_with(std::string_view content, std::string_view needle, Fn &&fn,
                            StemIndex *index = nullptr)
{
    if (needle.empty())
        return cfg_for_each_piece(content, fn);
    constexpr size_t kPiece = kCfgLineSize - 1;
    size_t from = 0;
    while (from < content.size()) {
        const size_t pos = cfg_find_next(content, needle, from, index);
        if (pos == std::string_view::npos)
            return 0;
        const size_t nl = pos == 0 ? std::string_view::npos : content.rfind('\n', pos - 1);
        const size_t line_start = nl == std::string_view::npos ? 0 : nl + 1;
        // The piece as cfg_for_each_piece cuts it: a line in pieces of kPiece from its start.
        const size_t start = line_start + (pos - line_start) / kPiece * kPiece;
        const std::string_view rest = content.substr(start);
        const size_t window = rest.size() < kPiece ? rest.size() : kPiece;
        const size_t end = rest.substr(0, window).find('\n');
        const std::string_view piece =
            rest.substr(0, end != std::string_view::npos ? end + 1 : window);
        if (pos + needle.size() > start + strnlen(piece.data(), piece.size())) {
            from = pos + 1; // across a piece's end or after its zero byte: not in its text
            continue;
        }
        const int ret = fn(piece);
        if (ret != 0)
            return ret;
        from = start + piece.size();
    }
    return 0;
}

/// The piece of `content` (with its newline) that a read of `key` is answered by: the first, in
/// file order, that begins with the key and holds "=", comments and pieces shorter than 3
/// characters left aside; empty when none is. The key may continue in the piece ("mtu_10=..."
/// answers "mtu_1"): the read's prefix rule.
[[nodiscard]] std::string_view cfg_find_answer(std::string_view content, std::string_view key,
                                               StemIndex *index = nullptr);
