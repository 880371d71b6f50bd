// Fuzzes whole command lines through the front-end and every command handler, in process,
// against sixteen emulated devices.
//
// Input: the first line holds the words after the program name, separated by blanks or tabs.
// Of the lines after it, those that begin with "!" are the emulator's faults (the rest of the
// line as `kopa-emu fault list` prints one: "data-len 0x108 2016 -1", "short any 3 1 piece=2"),
// so that hostile replies reach every handler; delays are left out. All other lines are the
// configuration file as the run finds it. Every input starts from the same world: the devices as
// `kopa-emu init --devices 16` leaves them (restored from a pristine copy), the given faults and
// configuration file, and nothing else under the test root: no run log, no TLS host store, a
// fresh command table and no setting lock held.
//
// Besides the sanitizers, each run is checked for what must hold whatever the command line:
// - the configuration file stays within its size limit and no temporary file of a rewrite is
//   left beside it;
// - every line the run added to the file is "key=value" of printable text (lines as the store
//   reads them, in pieces of 383 characters);
// - every run-log line is one whole line of printable text of a known class, and each audited
//   argument shows only the characters the audit lets through.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.hpp"
#include "cmdline/identity.hpp"
#include "config/store.hpp"
#include "emu/state.hpp"
#include "fuzz/fuzz_support.hpp"
#include "main/cmd_table.hpp"
#include "main/dispatch.hpp"
#include "main/errors.hpp"

namespace
{

struct World {
    std::string dir;  ///< the fuzzing directory
    std::string emu;  ///< the emulator's state directory
    std::string root; ///< the test root of the tool's absolute paths
    std::string conf; ///< the configuration file
    std::string log_dir;
    std::map<std::string, std::string> pristine; ///< emulator files as init left them
    cmd_record table[kCmdListMax];               ///< the command table before any run
};

World *g_world = nullptr;

std::set<int> open_fds()
{
    std::set<int> fds;
    DIR *d = opendir("/proc/self/fd");
    if (d == nullptr)
        return fds;
    while (const dirent *e = readdir(d)) {
        const int fd = atoi(e->d_name);
        if (e->d_name[0] != '.' && fd != dirfd(d))
            fds.insert(fd);
    }
    closedir(d);
    return fds;
}

// The tool is a process per command: the setting lock it takes stays held until it exits. Here
// the next input is the next process, so the descriptors a run left open on the world's files
// are closed (others, such as those of the TLS module's libraries, stay).
void close_left_open(const std::set<int> &before)
{
    for (int fd : open_fds()) {
        if (before.contains(fd))
            continue;
        char target[4096];
        const ssize_t n =
            readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target, sizeof target - 1);
        if (n > 0 && std::string(target, static_cast<size_t>(n)).starts_with(g_world->dir))
            (void)close(fd);
    }
}

void restore_world(const std::string &conf, const std::string &faults)
{
    World &w = *g_world;
    for (const auto &[name, bytes] : w.pristine)
        if (!fuzz_spill(w.emu + "/" + name, bytes, 0644))
            fuzz_fault("cmdline_fuzz", "restore", name);
    if (faults.empty())
        (void)unlink((w.emu + "/faults").c_str());
    else if (!fuzz_spill(w.emu + "/faults", faults, 0644))
        fuzz_fault("cmdline_fuzz", "restore", "faults");
    // Nothing of an earlier run stays under the test root: run log, setting lock, the TLS host
    // store and key store.
    std::error_code ec;
    std::filesystem::remove_all(w.root, ec);
    if (ec || !std::filesystem::create_directories(w.root + "/etc", ec) ||
        !fuzz_spill(w.conf, conf, 0640))
        fuzz_fault("cmdline_fuzz", "restore", w.conf);
    memcpy(g_cmd_list, w.table, sizeof g_cmd_list);
    clearerr(stdin);
}

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t nl = text.find('\n', start);
        size_t end = nl == std::string::npos ? text.size() : nl + 1;
        lines.push_back(text.substr(start, end - start));
        start = end;
    }
    return lines;
}

std::vector<std::string> pieces_of(const std::string &text)
{
    std::vector<std::string> pieces;
    (void)cfg_for_each_piece(text, [&](std::string_view piece) {
        pieces.emplace_back(piece);
        return 0;
    });
    return pieces;
}

bool printable(const std::string &text)
{
    for (unsigned char c : text)
        if (c < 0x20 || c > 0x7e)
            return false;
    return true;
}

void check_conf(const std::string &before)
{
    const World &w = *g_world;
    const std::string after = fuzz_slurp(w.conf);
    if (after.size() >= kCfgFileMax && before.size() < kCfgFileMax)
        fuzz_fault("cmdline_fuzz", "configuration file beyond its limit",
                   std::to_string(after.size()));
    if (access((w.conf + ".tmp").c_str(), F_OK) == 0)
        fuzz_fault("cmdline_fuzz", "temporary file left", w.conf + ".tmp");
    // Lines as the store reads them: a line over 383 characters in pieces, which a deletion
    // removes one by one (what is left of a long line then joins the next piece).
    const std::vector<std::string> was = pieces_of(before);
    std::multiset<std::string> old(was.begin(), was.end());
    // A last line without its newline gets one when a line is added after it.
    if (!was.empty() && was.back().back() != '\n')
        old.insert(was.back() + "\n");
    for (const std::string &piece : pieces_of(after)) {
        auto it = old.find(piece);
        if (it != old.end()) {
            old.erase(it);
            continue;
        }
        if (piece == "\n") // the newline given to a last piece of 383 characters
            continue;
        // A line the run wrote: "key=value\n", all of it printable.
        const size_t eq = piece.find('=');
        if (piece.back() != '\n' || eq == std::string::npos || eq == 0 ||
            !printable(piece.substr(0, piece.size() - 1)))
            fuzz_fault("cmdline_fuzz", "malformed saved line", piece);
    }
}

void check_run_log()
{
    const std::string text = fuzz_slurp(g_world->log_dir + "/vorn.log");
    for (const std::string &line : lines_of(text)) {
        if (line.back() != '\n' || !printable(line.substr(0, line.size() - 1)) ||
            !(line.starts_with("PROMPT MINOR ") || line.starts_with("CONFIG MAJOR ")))
            fuzz_fault("cmdline_fuzz", "malformed run-log line", line);
        const size_t at = line.find(">>> parse [");
        if (at == std::string::npos)
            continue;
        const size_t open = line.find("th argv[", at);
        const size_t close = line.rfind("]\n");
        if (open == std::string::npos || close == std::string::npos || close < open + 8)
            fuzz_fault("cmdline_fuzz", "malformed audit line", line);
        for (size_t i = open + 8; i < close; ++i) {
            const char c = line[i];
            if (!(c == '*' || c == '-' || c == '.' || c == '/' || c == '_' ||
                  (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')))
                fuzz_fault("cmdline_fuzz", "unmasked character in the audit", line);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    fuzz_quiet(argc, argv);
    auto *w = new World;
    w->dir = fuzz_dir();
    w->emu = w->dir + "/emu";
    const std::string root = w->root = w->dir + "/root";
    w->conf = root + "/etc/vorn.conf";
    kopa_emu::InitOptions options;
    options.devices = KOPA_MAX_DEVICES;
    if (kopa_emu::init_host(w->emu, options) != 0)
        fuzz_fault("cmdline_fuzz", "emulator", w->emu);
    // Everything init wrote; the lock, the log level and the discarded driver log stay as they are.
    for (uint32_t i = 0; i < KOPA_MAX_DEVICES; ++i) {
        const std::string name = "dev-" + std::to_string(i) + ".bin";
        w->pristine[name] = fuzz_slurp(w->emu + "/" + name);
    }
    w->pristine["host.bin"] = fuzz_slurp(w->emu + "/host.bin");
    memcpy(w->table, g_cmd_list, sizeof g_cmd_list);
    g_world = w;

    // As the entry point does once at start.
    unsetenv("SSH_CLIENT");
    if (vorn_get_usr_name() != 0 || vorn_get_usr_ip() != 0)
        fuzz_fault("cmdline_fuzz", "identity", "user name or address");
    const std::string user = vorn_get_g_usr_name();
    w->log_dir = root + (user == "root" ? "/var/log/vorn_tool" : "/home/" + user);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string input(reinterpret_cast<const char *>(data), size);
    const size_t nl = input.find('\n');
    std::string conf, faults;
    for (size_t pos = nl; pos != std::string::npos && pos + 1 < input.size();) {
        const size_t end = input.find('\n', pos + 1);
        const std::string line = input.substr(pos + 1, end == std::string::npos ? end : end - pos);
        const size_t kind = line.find_first_not_of(" \t\n\v\f\r", 1);
        if (!line.starts_with("!"))
            conf += line;
        else if (kind == std::string::npos || line.compare(kind, 5, "delay") != 0)
            faults += line.substr(1);
        pos = end;
    }
    std::vector<std::string> words = fuzz_words(input.substr(0, nl));
    if (words.size() > 80) // well past the tool's own limit of 63 words
        return -1;
    words.insert(words.begin(), "vorn_tool");

    restore_world(conf, faults);
    const std::set<int> fds = open_fds();
    FuzzArgv args(words);
    cmd_parse_info info{};
    const int32_t ret = parse_cmd(args.argc(), args.argv(), &info);
    if (ret != kOk)
        uda_handle_result(ret, &info);
    (void)fflush(stdout);
    close_left_open(fds);

    check_conf(conf);
    check_run_log();
    return 0;
}
