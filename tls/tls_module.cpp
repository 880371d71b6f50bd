// The TLS module's entry point (tls/tls_module.hpp): the only symbol vorn_tls.so exports.
#include "tls/tls_module.hpp"

#include <cstdio>

#include "base/identity.hpp"
#include "base/result.hpp"
#include "base/text.hpp"
#include "tls/tool_tls.hpp"

#ifdef VORN_TEST_PATHS
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace
{

// Test build only: when VORN_TEST_MEMDUMP names a file, every writable mapping of the process
// is copied into it at exit, so that a test can look for secrets left behind. The buffers are
// static: the dump allocates nothing.
char g_dump_path[4097];
char g_maps[1 << 20];
char g_chunk[1 << 16];
constexpr unsigned long kLargestRange = 1ul << 30;

void copy_range(int mem, int out, unsigned long from, unsigned long to)
{
    for (unsigned long at = from; at < to;) {
        const size_t want = to - at < sizeof(g_chunk) ? to - at : sizeof(g_chunk);
        const ssize_t n = pread(mem, g_chunk, want, static_cast<off_t>(at));
        if (n <= 0)
            return; // an unreadable range ([vvar] and the like)
        (void)!write(out, g_chunk, static_cast<size_t>(n));
        at += static_cast<unsigned long>(n);
    }
}

void dump_writable_memory()
{
    const int out = open(g_dump_path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const int maps = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    const int mem = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    size_t len = 0;
    for (ssize_t n; maps >= 0 && len < sizeof(g_maps) - 1 &&
                    (n = read(maps, g_maps + len, sizeof(g_maps) - 1 - len)) > 0;)
        len += static_cast<size_t>(n);
    g_maps[len] = '\0';
    if (out >= 0 && mem >= 0) {
        for (char *line = g_maps; *line != '\0';) {
            char *next = strchr(line, '\n');
            if (next != nullptr)
                *next = '\0';
            unsigned long from = 0;
            unsigned long to = 0;
            char perms[5] = {};
            // Reservations of a sanitizer's shadow memory are skipped: no secret is kept there.
            if (sscanf(line, "%lx-%lx %4s", &from, &to, perms) == 3 && perms[1] == 'w' &&
                to - from <= kLargestRange)
                copy_range(mem, out, from, to);
            if (next == nullptr)
                break;
            line = next + 1;
        }
    }
    for (int fd : {out, maps, mem}) {
        if (fd >= 0)
            (void)close(fd);
    }
}

void arm_memory_dump()
{
    const char *path = std::getenv("VORN_TEST_MEMDUMP");
    if (path == nullptr || path[0] == '\0' || !copy_text(g_dump_path, path))
        return;
    (void)atexit(dump_writable_memory);
}

} // namespace
#endif

extern "C" __attribute__((visibility("default"))) int32_t
vorn_tls_module_run(const VornTlsModuleCall *call)
{
    if (call == nullptr || call->abi != kVornTlsModuleAbi ||
        call->info_size != sizeof(cmd_parse_info)) {
        (void)fputs("The TLS module does not belong to this vorn_tool.\n", stderr);
        return kErrExec;
    }
    // The module has its own copy of the identity that every run-log line carries.
    if (!copy_text(g_vorn_usr_name, call->usr_name != nullptr ? call->usr_name : "") ||
        !copy_text(g_vorn_usr_ip, call->usr_ip != nullptr ? call->usr_ip : ""))
        return kErrSysCopy;
#ifdef VORN_TEST_PATHS
    arm_memory_dump();
#endif
    return tool_tls_cmd_execute(call->argc, call->argv, call->info);
}
