// The pass phrase of a TLS private key: terminal entry and the strength rules.
#include "tls/tls_pwd.hpp"

#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "base/paths.hpp"
#include "base/result.hpp"
#include "base/text.hpp"
#include "log/driver_log.hpp"

namespace
{

constexpr uint32_t kPwdKindsMin = 2;

// The terminal's settings while echo is off, put back by the signal handler if the run is
// ended at the prompt: a shell left without echo is worse than a lost pass phrase.
struct termios g_saved_tty;
volatile sig_atomic_t g_tty_changed = 0;
constexpr int kPromptSignals[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP};

extern "C" void restore_tty_and_die(int sig)
{
    if (g_tty_changed != 0)
        (void)tcsetattr(STDIN_FILENO, TCSANOW, &g_saved_tty);
    (void)signal(sig, SIG_DFL);
    (void)raise(sig);
}

class PromptSignals
{
  public:
    PromptSignals()
    {
        struct sigaction sa {
        };
        sa.sa_handler = restore_tty_and_die;
        (void)sigemptyset(&sa.sa_mask);
        for (size_t i = 0; i < std::size(kPromptSignals); ++i)
            (void)sigaction(kPromptSignals[i], &sa, &old_[i]);
    }
    ~PromptSignals()
    {
        for (size_t i = 0; i < std::size(kPromptSignals); ++i)
            (void)sigaction(kPromptSignals[i], &old_[i], nullptr);
    }
    PromptSignals(const PromptSignals &) = delete;
    PromptSignals &operator=(const PromptSignals &) = delete;

  private:
    struct sigaction old_[std::size(kPromptSignals)]{};
};

// Reads one line into `buf`; the rest of a line too long for it is read and dropped, so that
// no part of a pass phrase is left for the shell to read after the run.
bool read_line(char *buf, int size)
{
    if (fgets(buf, size, stdin) == nullptr)
        return false;
    if (strchr(buf, '\n') == nullptr) {
        int c;
        do {
            c = getchar();
        } while (c != EOF && c != '\n');
    }
    return true;
}

} // namespace

int32_t tool_get_passwd(PwdBuffer &pwd)
{
    pwd.wipe();
    // Unbuffered, so that no copy of the line stays in a stdio buffer.
    (void)setvbuf(stdin, nullptr, _IONBF, 0);
    struct termios tty {
    };
    if (tcgetattr(STDIN_FILENO, &tty) != 0) {
        DRV_ERR("tcgetattr failed, errno:%d", errno);
        return kErrTerminal;
    }
    PromptSignals guard;
    g_saved_tty = tty;
    tty.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tty.c_lflag |= ECHONL;
    g_tty_changed = 1;
    if (tcsetattr(STDIN_FILENO, TCSAFLUSH, &tty) != 0) {
        g_tty_changed = 0;
        DRV_ERR("tcsetattr failed, errno:%d", errno);
        return kErrTerminal;
    }
    (void)fputs(kPwdPrompt, stdout);
    (void)fflush(stdout);
    const bool got = read_line(pwd.chars(), static_cast<int>(pwd.size()));
    const bool restored = tcsetattr(STDIN_FILENO, TCSANOW, &g_saved_tty) == 0;
    g_tty_changed = 0;
    if (!got) {
        pwd.wipe();
        DRV_ERR("fgets pass phrase failed");
        return kErrTerminal;
    }
    if (!restored) {
        pwd.wipe();
        DRV_ERR("tcsetattr restore failed, errno:%d", errno);
        return kErrTerminal;
    }
    return kOk;
}

void tool_filter_str(char *buf, size_t cap, char c)
{
    size_t out = 0;
    for (size_t in = 0; in < cap && buf[in] != '\0'; ++in) {
        if (buf[in] != c)
            buf[out++] = buf[in];
    }
    for (size_t i = out; i < cap && buf[i] != '\0'; ++i)
        buf[i] = '\0';
}

bool is_special_char(char c)
{
    static constexpr char kSpecial[] = "`~!@#$%^&*()-_=+\\|[{}];:',<.>/? ";
    return c != '\0' && strchr(kSpecial, c) != nullptr;
}

int32_t tool_check_pwd_complexity(const char *pwd, uint32_t len)
{
    bool digit = false;
    bool lower = false;
    bool upper = false;
    bool special = false;
    for (uint32_t i = 0; i < len; ++i) {
        const char c = pwd[i];
        if (c >= '0' && c <= '9') {
            digit = true;
        } else if (c >= 'a' && c <= 'z') {
            lower = true;
        } else if (c >= 'A' && c <= 'Z') {
            upper = true;
        } else if (is_special_char(c)) {
            special = true;
        } else {
            DRV_ERR("pwd has a character of no known kind");
            return kErrPwdComplexity;
        }
    }
    const uint32_t kinds = static_cast<uint32_t>(digit) + static_cast<uint32_t>(lower) +
                           static_cast<uint32_t>(upper) + static_cast<uint32_t>(special);
    if (kinds < kPwdKindsMin) {
        DRV_ERR("type_cnt[%u] < [%u], the complexity of pwd is too low", kinds, kPwdKindsMin);
        return kErrPwdComplexity;
    }
    return kOk;
}

std::string weak_dict_path(const char *user)
{
    if (user != nullptr && strcmp(user, "root") == 0)
        return sys_path(kWeakDictRoot);
    char path[4097];
    if (!format_text(path, sizeof(path), kWeakDictUserFmt, user != nullptr ? user : ""))
        return "";
    return sys_path(path);
}

int32_t crypto_check_weak_pwd(const char *pwd, uint32_t len, const char *path)
{
    FILE *dict = path != nullptr && path[0] != '\0' ? fopen(path, "re") : nullptr;
    if (dict == nullptr)
        return kErrPwdNoDict;
    // The stream reads through a buffer of ours, wiped with the lines once it is closed.
    SecureBuffer<4096> io;
    (void)setvbuf(dict, io.chars(), _IOFBF, io.size());
    SecureBuffer<kWeakDictLineMax + 2> line;
    uint32_t lines = 0;
    bool weak = false;
    int32_t ret = kOk;
    while (fgets(line.chars(), static_cast<int>(line.size()), dict) != nullptr) {
        if (++lines > kWeakDictMaxLines) {
            DRV_ERR("weak pwd dict has more than %u lines", kWeakDictMaxLines);
            ret = kErrPwdDictTooLong;
            break;
        }
        size_t n = strlen(line.chars());
        if (n > kWeakDictLineMax && line.chars()[n - 1] != '\n') {
            DRV_ERR("weak pwd dict line %u is longer than %zu", lines, kWeakDictLineMax);
            ret = kErrSysNull;
            break;
        }
        if (n > 0 && line.chars()[n - 1] == '\n')
            line.chars()[--n] = '\0';
        if (n <= kPwdMaxLen && n == len && memcmp(line.chars(), pwd, len) == 0)
            weak = true;
        line.wipe();
    }
    (void)fclose(dict);
    line.wipe();
    io.wipe();
    if (ret != kOk)
        return ret;
    if (lines == 0)
        return kErrPwdEmptyDict;
    return weak ? kErrPwdWeak : kOk;
}

int32_t weak_pwd_check_ret_print(int32_t ret)
{
    switch (ret) {
    case kOk:
        return kOk;
    case kErrPwdWeak:
        (void)fputs("The password you input is too weak, please choose another one!\n", stderr);
        break;
    case kErrPwdDictTooLong:
        (void)fputs("You config the weak passwords exceed 10000 entries, invalid!\n", stderr);
        break;
    case kErrPwdNoDict:
        (void)fputs("You have not configed a weak password dictionary, please config to ensure "
                    "safer\n",
                    stdout);
        return kOk;
    case kErrPwdEmptyDict:
        (void)fputs("There is nothing in weak password dictionary, please config to ensure safer\n",
                    stdout);
        return kOk;
    default:
        break;
    }
    DRV_ERR("weak pwd check failed, ret:0x%x", static_cast<unsigned>(ret));
    return kErrPwdCheck;
}

int32_t tool_check_pwd(PwdBuffer &pwd, uint32_t *len, const char *user)
{
    *len = 0;
    pwd.chars()[pwd.size() - 1] = '\0';
    tool_filter_str(pwd.chars(), pwd.size(), '\n');
    const auto n = static_cast<uint32_t>(strnlen(pwd.chars(), pwd.size()));
    if (n < kPwdMinLen || n > kPwdMaxLen) {
        DRV_ERR("pwd len[%u] is not in [%u, %u]", n, kPwdMinLen, kPwdMaxLen);
        return kErrPwdLength;
    }
    int32_t ret = tool_check_pwd_complexity(pwd.chars(), n);
    if (ret != kOk)
        return ret;
    const std::string dict = weak_dict_path(user);
    ret = weak_pwd_check_ret_print(crypto_check_weak_pwd(pwd.chars(), n, dict.c_str()));
    if (ret != kOk)
        return ret;
    *len = n;
    return kOk;
}
