// A library the secret tests preload into vorn_tool: it interposes the library calls through
// which the TLS module reaches its secrets, so that a test can see them from outside the
// shipped objects.
//   VORN_TEST_MEMDUMP=FILE        once the TLS module is opened, every writable mapping of the
//                                 process is copied into FILE at exit (before the module's own
//                                 static objects are destroyed)
//   VORN_TEST_SYMM_KEY_FILE=FILE  the plain text of each RSA encryption, the envelope's
//                                 symmetric key, is written to FILE
// The buffers are static: the dump allocates nothing.
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include <openssl/evp.h>

namespace
{

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
    if (g_dump_path[0] != '\0' || path == nullptr || path[0] == '\0' ||
        strlen(path) >= sizeof(g_dump_path))
        return;
    memcpy(g_dump_path, path, strlen(path) + 1);
    (void)atexit(dump_writable_memory);
}

} // namespace

// The TLS module is the one library the tool opens that holds its entry point; the dump is
// armed after the module's static objects are made, so that it runs before they go.
extern "C" void *dlopen(const char *file, int mode)
{
    static const auto real =
        reinterpret_cast<void *(*)(const char *, int)>(dlsym(RTLD_NEXT, "dlopen"));
    void *handle = real(file, mode);
    if (handle != nullptr && dlsym(handle, "vorn_tls_module_run") != nullptr)
        arm_memory_dump();
    return handle;
}

// The envelope encrypts its symmetric key, and nothing else, under the device's RSA key.
extern "C" int EVP_PKEY_encrypt(EVP_PKEY_CTX *ctx, unsigned char *out, size_t *outlen,
                                const unsigned char *in, size_t inlen)
{
    // libcrypto is the module's own dependency, outside the global scope: asked by its handle.
    using Encrypt =
        int (*)(EVP_PKEY_CTX *, unsigned char *, size_t *, const unsigned char *, size_t);
    static void *const libcrypto = dlopen("libcrypto.so.3", RTLD_LAZY | RTLD_NOLOAD);
    static const auto real = reinterpret_cast<Encrypt>(
        libcrypto != nullptr ? dlsym(libcrypto, "EVP_PKEY_encrypt") : nullptr);
    if (real == nullptr)
        return -1;
    const char *path = std::getenv("VORN_TEST_SYMM_KEY_FILE");
    if (out != nullptr && path != nullptr && path[0] != '\0') {
        const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd >= 0) {
            (void)!write(fd, in, inlen);
            (void)close(fd);
        }
    }
    return real(ctx, out, outlen, in, inlen);
}
