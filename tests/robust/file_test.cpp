// What a change leaves on disk around the configuration file: the leftover of a killed run, the
// owner and mode, a symbolic link, and saves that fail on a size limit or a full file system.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "tests/robust/saved_file.hpp"

namespace robust
{
namespace
{

namespace fs = std::filesystem;

const char *kMtuSaveFailed = "Failed to write the MTU to the config file, and user "
                             "configurations cannot be persisted.\n"
                             "Write file failed, cmd execute failed! pls check cmd run "
                             "permission.\n";
const std::vector<std::string> kSetMtu = {"-i", "0", "-mtu", "-s", "size", "9000"};

class FileTest : public ::testing::Test
{
  protected:
    ToolSandbox sb_{{"--devices", "2"}};
    std::string tmp_ = sb_.conf_path() + ".tmp";

    bool tmp_gone() const
    {
        struct stat st {
        };
        return lstat(tmp_.c_str(), &st) != 0 && errno == ENOENT;
    }
};

TEST_F(FileTest, LeftoverOfAKilledRunIsReplacedNeverFollowed)
{
    const std::string old = saved_file(20000), expected = after_mtu_set(old, "9000");
    const std::string victim = sb_.dir() + "/victim";
    ASSERT_TRUE(write_file(victim, "not to be touched\n"));
    struct Case {
        const char *what;
        void (*make)(const std::string &tmp, const std::string &old, const std::string &victim);
    };
    const Case cases[] = {
        {"half a file",
         [](const std::string &tmp, const std::string &text, const std::string &) {
             ASSERT_TRUE(write_file(tmp, text.substr(0, text.size() / 2)));
             ASSERT_EQ(chmod(tmp.c_str(), 0400), 0);
         }},
        {"link to another file",
         [](const std::string &tmp, const std::string &, const std::string &target) {
             ASSERT_EQ(symlink(target.c_str(), tmp.c_str()), 0);
         }},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        sb_.set_conf(old);
        c.make(tmp_, old, victim);
        ProcResult r = sb_.tool(kSetMtu);
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_TRUE(sb_.conf() == expected);
        EXPECT_TRUE(tmp_gone());
        EXPECT_EQ(read_file(victim), "not to be touched\n");
    }

    // A leftover that cannot be removed fails the save; the file stays as it was.
    sb_.set_conf(old);
    ASSERT_EQ(mkdir(tmp_.c_str(), 0700), 0);
    ASSERT_EQ(mkdir((tmp_ + "/x").c_str(), 0700), 0);
    ProcResult r = sb_.tool(kSetMtu);
    EXPECT_EQ(r.status, 4);
    EXPECT_EQ(r.err, kMtuSaveFailed);
    EXPECT_TRUE(sb_.conf() == old);
}

TEST_F(FileTest, EveryKindOfChangeKeepsOwnerModeAndLink)
{
    // Another owner can be given only by root; elsewhere the run's own stays to be kept.
    const bool root = geteuid() == 0;
    const std::vector<std::vector<std::string>> changes = {
        kSetMtu,
        {"-i", "0", "-route", "-a", "address", "30.0.0.0", "netmask", "255.0.0.0", "gateway",
         "10.0.0.1"},
        {"-i", "0", "-route", "-d", "address", "30.0.0.0", "netmask", "255.0.0.0"},
        {"-i", "0", "-route", "-c"},
    };
    for (const mode_t mode : {0640, 0604}) {
        sb_.set_conf(saved_file(20000));
        ASSERT_EQ(chmod(sb_.conf_path().c_str(), mode), 0);
        if (root) {
            ASSERT_EQ(chown(sb_.conf_path().c_str(), 4321, 4322), 0);
        }
        const std::string identity = file_identity(sb_.conf_path());
        for (const auto &args : changes) {
            SCOPED_TRACE(args[2] + " " + args[3] + " mode " + std::to_string(mode));
            const std::string before = sb_.conf();
            ProcResult r = sb_.tool(args);
            EXPECT_EQ(r.status, 0) << r.err;
            EXPECT_NE(sb_.conf(), before);
            EXPECT_EQ(file_identity(sb_.conf_path()), identity);
        }
    }

    // A file reached through a link is changed where it lies; the link stays a link.
    const std::string real = sb_.dir() + "/vorn.conf.real", old = saved_file(20000);
    ASSERT_TRUE(write_file(real, old));
    fs::remove(sb_.conf_path());
    fs::create_symlink(real, sb_.conf_path());
    EXPECT_EQ(sb_.tool(kSetMtu).status, 0);
    EXPECT_TRUE(fs::is_symlink(sb_.conf_path()));
    EXPECT_TRUE(read_file(real) == after_mtu_set(old, "9000"));
}

TEST_F(FileTest, SizeLimitFailsTheSaveAndKeepsTheFile)
{
    const std::string old = saved_file(100 * 1024), expected = after_mtu_set(old, "9000");
    struct Case {
        rlim_t limit;
        bool saves;
    };
    // Below the old size; five bytes short of the new size, in its last line; just the new size.
    const Case cases[] = {
        {50 * 1024, false}, {expected.size() - 5, false}, {expected.size(), true}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.limit);
        sb_.set_conf(old);
        const rlimit lim{c.limit, c.limit};
        std::vector<std::string> argv = {vorn_tool_bin()};
        argv.insert(argv.end(), kSetMtu.begin(), kSetMtu.end());
        ProcResult r = run_process(argv, sb_.env(), "", [&lim] { setrlimit(RLIMIT_FSIZE, &lim); });
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.status, c.saves ? 0 : 4);
        EXPECT_EQ(r.err, c.saves ? "" : kMtuSaveFailed);
        EXPECT_TRUE(sb_.conf() == (c.saves ? expected : old));
        EXPECT_TRUE(tmp_gone());
    }
}

// A 128 KB tmpfs over the directory of the file, which holds 100 KB: the new file does not fit
// beside the old one. Mounting needs a user and mount namespace of its own, made in a child.
TEST_F(FileTest, FullFileSystemFailsTheSaveAndKeepsTheFile)
{
    const std::string old = saved_file(100 * 1000);
    int pipe_fds[2];
    ASSERT_EQ(pipe(pipe_fds), 0);
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(pipe_fds[0]);
        auto report = [&](const std::string &text) {
            (void)!write(pipe_fds[1], text.data(), text.size());
            _exit(0);
        };
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            report(std::string("skip: no user namespace: ") + strerror(errno));
        if (!write_file("/proc/self/setgroups", "deny") ||
            !write_file("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") ||
            !write_file("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1") ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", (sb_.root() + "/etc").c_str(), "tmpfs", 0, "size=128k") != 0)
            report(std::string("skip: no tmpfs in a user namespace: ") + strerror(errno));
        if (!write_file(sb_.conf_path(), old))
            report("the old file does not fit");
        std::vector<std::string> argv = {vorn_tool_bin()};
        argv.insert(argv.end(), kSetMtu.begin(), kSetMtu.end());
        ProcResult r = run_process(argv, sb_.env());
        report(std::to_string(r.status) + (sb_.conf() == old ? " unchanged" : " changed") +
               (tmp_gone() ? " clean\n" : " leftover\n") + r.err);
    }
    close(pipe_fds[1]);
    std::string got;
    char buf[512];
    for (ssize_t n; (n = read(pipe_fds[0], buf, sizeof(buf))) > 0;)
        got.append(buf, static_cast<size_t>(n));
    close(pipe_fds[0]);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (got.starts_with("skip: "))
        GTEST_SKIP() << got;
    EXPECT_EQ(got, std::string("4 unchanged clean\n") + kMtuSaveFailed);
}

} // namespace
} // namespace robust
