// The shared fuzzing support: private directory, quiet streams, input helpers.
#include "fuzz/fuzz_support.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace
{

std::string *g_dir = nullptr;
int g_report_fd = STDERR_FILENO;

void remove_dir()
{
    if (g_dir == nullptr)
        return;
    std::error_code ec;
    std::filesystem::remove_all(*g_dir, ec);
}

[[noreturn]] void fail(const char *what)
{
    fprintf(stderr, "fuzz support: %s: %s\n", what, strerror(errno));
    abort();
}

} // namespace

const std::string &fuzz_dir()
{
    if (g_dir != nullptr)
        return *g_dir;
    const char *tmp = getenv("TMPDIR");
    std::string tmpl =
        std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/vorn-fuzz-XXXXXX";
    if (mkdtemp(tmpl.data()) == nullptr)
        fail("mkdtemp");
    g_dir = new std::string(tmpl);
    (void)atexit(remove_dir);
    const std::string emu = *g_dir + "/emu";
    const std::string root = *g_dir + "/root";
    if (mkdir(emu.c_str(), 0755) != 0 || mkdir(root.c_str(), 0755) != 0)
        fail("mkdir");
    // The driver log is written at every level, so that every log line's formatting runs, and
    // thrown away, so that it does not grow for the length of the run.
    if (!fuzz_spill(emu + "/log_level", std::string("7\n"), 0644) ||
        symlink("/dev/null", (emu + "/driver.log").c_str()) != 0)
        fail("driver log");
    setenv("KOPA_EMU_DIR", emu.c_str(), 1);
    setenv("VORN_TEST_ROOT", root.c_str(), 1);
    // A run that finds the setting lock held gives up at once instead of after ten seconds.
    setenv("VORN_TEST_LOCK_WAIT_MS", "0", 1);
    return *g_dir;
}

void fuzz_quiet(int *argc, char ***argv)
{
    const int kept = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    if (kept >= 0)
        g_report_fd = kept;
    const int null_in = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (null_in < 0 || dup2(null_in, STDIN_FILENO) < 0)
        fail("stdin");
    (void)close(null_in);
    for (int i = 1; i < *argc; ++i) {
        if (strncmp((*argv)[i], "-close_fd_mask=", 15) == 0)
            return;
    }
    // libFuzzer reads its flags after this call; the new vector lives for the process.
    static std::vector<char *> args;
    static char flag[] = "-close_fd_mask=3";
    args.assign(*argv, *argv + *argc);
    args.insert(args.begin() + 1, flag);
    args.push_back(nullptr);
    *argc += 1;
    *argv = args.data();
}

void fuzz_fault(const char *target, const std::string &what, const std::string &detail)
{
    std::string text = std::string(target) + ": " + what;
    if (!detail.empty())
        text += ": \"" + detail + "\"";
    text += "\n";
    (void)!write(g_report_fd, text.data(), text.size());
    abort();
}

std::string fuzz_take_stdout()
{
    static bool captured = false;
    (void)fflush(stdout);
    std::string text;
    if (!captured) {
        const int fd = memfd_create("stdout", MFD_CLOEXEC);
        if (fd < 0 || dup2(fd, STDOUT_FILENO) < 0)
            fail("stdout");
        (void)close(fd);
        captured = true;
        return text;
    }
    const off_t size = lseek(STDOUT_FILENO, 0, SEEK_END);
    text.resize(size > 0 ? static_cast<size_t>(size) : 0);
    if (!text.empty() && pread(STDOUT_FILENO, text.data(), text.size(), 0) != size)
        fail("stdout");
    if (ftruncate(STDOUT_FILENO, 0) != 0 || lseek(STDOUT_FILENO, 0, SEEK_SET) != 0)
        fail("stdout");
    return text;
}

std::string fuzz_slurp(const std::string &path)
{
    std::string text;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return text;
    char buf[65536];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0)
        text.append(buf, static_cast<size_t>(n));
    (void)close(fd);
    return text;
}

bool fuzz_spill(const std::string &path, const std::string &text, unsigned mode)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (fd < 0)
        return false;
    const char *p = text.data();
    size_t size = text.size();
    bool ok = true;
    while (size > 0) {
        const ssize_t n = write(fd, p, size);
        if (n <= 0) {
            ok = false;
            break;
        }
        p += n;
        size -= static_cast<size_t>(n);
    }
    return close(fd) == 0 && ok;
}

uint8_t FuzzBytes::u8()
{
    if (size_ == 0)
        return 0;
    --size_;
    return *data_++;
}

uint16_t FuzzBytes::u16()
{
    const uint16_t lo = u8();
    return static_cast<uint16_t>(lo | (u8() << 8));
}

uint32_t FuzzBytes::u32()
{
    const uint32_t lo = u16();
    return lo | (static_cast<uint32_t>(u16()) << 16);
}

std::string FuzzBytes::bytes(size_t max)
{
    const size_t n = max < size_ ? max : size_;
    std::string out(reinterpret_cast<const char *>(data_), n);
    data_ += n;
    size_ -= n;
    return out;
}

std::string FuzzBytes::word(size_t max)
{
    return bytes(u8() % (max + 1));
}

std::string FuzzBytes::rest()
{
    return bytes(size_);
}

std::vector<std::string> fuzz_words(const std::string &text)
{
    std::vector<std::string> words;
    std::string word;
    for (char c : text) {
        if (c == ' ' || c == '\t') {
            if (!word.empty())
                words.push_back(word);
            word.clear();
        } else {
            word += c;
        }
    }
    if (!word.empty())
        words.push_back(word);
    return words;
}

FuzzArgv::FuzzArgv(const std::vector<std::string> &words) : words_(words)
{
    for (const std::string &w : words_) {
        // A word ends at its first zero byte, as it would on a real command line.
        const size_t len = strnlen(w.c_str(), w.size());
        auto *copy = static_cast<char *>(malloc(len + 1));
        memcpy(copy, w.c_str(), len);
        copy[len] = '\0';
        ptrs_.push_back(copy);
    }
    ptrs_.push_back(nullptr);
}

FuzzArgv::~FuzzArgv()
{
    for (char *p : ptrs_)
        free(p);
}
