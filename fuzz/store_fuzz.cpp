// Fuzzes the configuration store's read, rewrite, append and delete on arbitrary file contents,
// keys and values, in files of a few bytes and in files at the edge of the 1,024,000-byte limit.
//
// Input: a flags byte, then the key and the value (a length each, then the bytes; newlines and
// zero bytes become '_'), a byte for the room of the read, then the file's contents. The
// flags pick a long value (bit 0), an append instead of a rewrite (bit 4), and, for one input in
// eight (bits 1-3 equal to 1), contents after a filler of saved lines that brings the file to
// within 2 KiB of the limit, on either side of it (bits 5-7).
//
// Besides the sanitizers, each operation is checked against what it must do to the lines, as
// the store reads them (lines longer than 383 characters in pieces):
// - a read that succeeds answers a terminated value within the room; after a rewrite, a read
//   of the key answers the new value unless an earlier line begins with the key;
// - a rewrite drops exactly the lines of the key followed by "=", ends the file with the new
//   line (a missing last newline supplied), and is refused only for a line over 383
//   characters or a file that would reach the limit, leaving the file as it was;
// - an append keeps every line and adds the new one at the end, under the same limit;
// - a delete drops exactly the lines that contain the key before any zero byte.
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "config/store.hpp"
#include "fuzz/fuzz_support.hpp"

namespace
{

std::string g_path;

// A length (one byte, two for a maximum above 255), then the bytes.
std::string take_word(FuzzBytes &in, size_t max)
{
    std::string word = in.bytes((max > 255 ? in.u16() : in.u8()) % (max + 1));
    for (char &c : word)
        if (c == '\n' || c == '\0')
            c = '_';
    return word;
}

// Long saved lines, repeated: the filler of a file near the limit (long lines keep the walks
// over a megabyte quick).
const std::string &filler()
{
    static const std::string text = [] {
        std::string t;
        for (unsigned i = 0; t.size() < kCfgFileMax + 4096; ++i)
            t += "filler_" + std::to_string(i % 16) + "=" + std::string(300, 'a' + i % 26) + "\n";
        return t;
    }();
    return text;
}

/// The content without the lines for which `drop` holds (lines as the store reads them).
template <typename Drop> std::string without(const std::string &content, Drop drop)
{
    std::string kept;
    (void)cfg_for_each_piece(content, [&](std::string_view piece) {
        if (!drop(piece))
            kept.append(piece);
        return 0;
    });
    return kept;
}

/// The file a successful rewrite or append must leave, or "" with *fits false when the store
/// must refuse it.
std::string added(std::string kept, const std::string &line, bool *fits)
{
    if (!kept.empty() && kept.back() != '\n')
        kept.push_back('\n');
    kept += line;
    *fits = line.size() < kCfgLineSize && kept.size() + 1 <= kCfgFileMax;
    return kept;
}

bool is_exact_key(std::string_view piece, const std::string &key)
{
    return piece.size() > key.size() && piece.starts_with(key) && piece[key.size()] == '=';
}

void check_read(const std::string &key, uint32_t room)
{
    char out[512];
    memset(out, 'x', sizeof out);
    const int ret = cfg_inner_read_conf(g_path.c_str(), key.c_str(), out, room);
    if (ret == 0 && memchr(out, '\0', room) == nullptr)
        fuzz_fault("store_fuzz", "read answered an unterminated value", key);
    if (memchr(out + room, 'x', 1) == nullptr && room < sizeof out)
        fuzz_fault("store_fuzz", "read wrote past its room", key);
}

void check_write(const std::string &key, const std::string &value)
{
    const std::string before = fuzz_slurp(g_path);
    const std::string line = key + "=" + value + "\n";
    bool fits = false;
    const std::string want = added(
        without(before, [&](std::string_view p) { return is_exact_key(p, key); }), line, &fits);
    const int ret = cfg_inner_write_conf(g_path.c_str(), key.c_str(), value.c_str());
    const std::string after = fuzz_slurp(g_path);
    if (fits && ret != 0)
        fuzz_fault("store_fuzz", "rewrite refused a line that fits", key);
    if (!fits && ret == 0)
        fuzz_fault("store_fuzz", "rewrite took a line that does not fit", key);
    if (ret == 0 && after != want)
        fuzz_fault("store_fuzz", "rewrite left other lines than it should", key);
    if (ret != 0 && after != before)
        fuzz_fault("store_fuzz", "refused rewrite changed the file", key);
    // Unless an earlier line begins with the key, a read answers the new value (a key that holds
    // "=" or reads as a comment aside).
    if (ret != 0 || key.find('=') != std::string::npos || key[0] == '#')
        return;
    bool shadowed = false;
    size_t seen = 0;
    (void)cfg_for_each_piece(after, [&](std::string_view piece) {
        seen += piece.size();
        if (seen < after.size() && piece.starts_with(key))
            shadowed = true;
        return 0;
    });
    char out[kCfgLineSize];
    if (!shadowed &&
        (cfg_inner_read_conf(g_path.c_str(), key.c_str(), out, sizeof out) != 0 || value != out))
        fuzz_fault("store_fuzz", "read after a rewrite did not answer the new value", key);
}

void check_append(const std::string &key, const std::string &value)
{
    const std::string before = fuzz_slurp(g_path);
    bool fits = false;
    const std::string want = added(before, key + "=" + value + "\n", &fits);
    ConfSession session(ConfAccess::kWrite);
    int ret = session.open(g_path.c_str());
    if (ret == 0)
        ret = session.append(key.c_str(), value.c_str());
    if (ret == 0)
        ret = session.commit();
    const std::string after = fuzz_slurp(g_path);
    if (fits != (ret == 0))
        fuzz_fault(
            "store_fuzz",
            fits ? "append refused a line that fits" : "append took a line that does not fit", key);
    if (after != (ret == 0 ? want : before))
        fuzz_fault("store_fuzz", "append left other lines than it should", key);
}

void check_delete(const std::string &key)
{
    const std::string before = fuzz_slurp(g_path);
    const std::string want = without(before, [&](std::string_view p) {
        return std::string_view(p.data(), strnlen(p.data(), p.size())).find(key) !=
               std::string_view::npos;
    });
    if (cfg_inner_del_conf(g_path.c_str(), key.c_str()) != 0)
        fuzz_fault("store_fuzz", "delete failed", key);
    if (fuzz_slurp(g_path) != want)
        fuzz_fault("store_fuzz", "delete left other lines than it should", key);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    fuzz_quiet(argc, argv);
    g_path = fuzz_dir() + "/vorn.conf";
    (void)filler();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzBytes in(data, size);
    const uint8_t flags = in.u8();
    const std::string key = take_word(in, 48);
    // Values past the line buffer now and then.
    const std::string value = take_word(in, flags & 1 ? 400 : 48);
    const uint32_t room = 1 + in.u8() % 64;
    if (key.empty())
        return -1;
    std::string content = in.rest();
    if ((flags & 0x0E) == 0x02) {
        const size_t target = kCfgFileMax - 2048 + (flags >> 5) * 512;
        if (content.size() < target)
            content = filler().substr(0, target - content.size()) + content;
    }
    if (!fuzz_spill(g_path, content, 0640))
        fuzz_fault("store_fuzz", "write the file", key);

    check_read(key, room);
    if (flags & 0x10)
        check_append(key, value);
    else
        check_write(key, value);
    check_read(key, room);
    check_delete(key);
    return 0;
}
