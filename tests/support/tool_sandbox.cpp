// Process runner and sandbox for end-to-end tests.
#include "tests/support/tool_sandbox.hpp"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

const char *vorn_tool_bin()
{
    return VORN_TOOL_BIN;
}
const char *kopa_emu_bin()
{
    return KOPA_EMU_BIN;
}

std::string read_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return "";
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

bool write_file(const std::string &path, const std::string &text)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    return static_cast<bool>(out);
}

ProcResult run_process(const std::vector<std::string> &argv,
                       const std::map<std::string, std::string> &env, const std::string &input,
                       const std::function<void()> &in_child)
{
    ProcResult res;
    int out_pipe[2], err_pipe[2], in_pipe[2];
    if (pipe2(out_pipe, O_CLOEXEC) != 0 || pipe2(err_pipe, O_CLOEXEC) != 0 ||
        pipe2(in_pipe, O_CLOEXEC) != 0)
        return res;

    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, in_pipe[0], 0);
    posix_spawn_file_actions_adddup2(&fa, out_pipe[1], 1);
    posix_spawn_file_actions_adddup2(&fa, err_pipe[1], 2);

    std::vector<char *> args;
    for (const auto &a : argv)
        args.push_back(const_cast<char *>(a.c_str()));
    args.push_back(nullptr);

    std::vector<std::string> env_strs;
    if (const char *path = std::getenv("PATH"))
        env_strs.push_back(std::string("PATH=") + path);
    for (const auto &[k, v] : env)
        env_strs.push_back(k + "=" + v);
    std::vector<char *> envp;
    for (auto &e : env_strs)
        envp.push_back(e.data());
    envp.push_back(nullptr);

    pid_t pid = -1;
    int rc = 0;
    if (!in_child) {
        rc = posix_spawn(&pid, args[0], &fa, nullptr, args.data(), envp.data());
    } else if ((pid = fork()) == 0) {
        if (dup2(in_pipe[0], 0) < 0 || dup2(out_pipe[1], 1) < 0 || dup2(err_pipe[1], 2) < 0)
            _exit(127);
        in_child();
        execve(args[0], args.data(), envp.data());
        _exit(127);
    } else if (pid < 0) {
        rc = errno;
    }
    posix_spawn_file_actions_destroy(&fa);
    close(in_pipe[0]);
    close(out_pipe[1]);
    close(err_pipe[1]);
    if (rc != 0) {
        close(in_pipe[1]);
        close(out_pipe[0]);
        close(err_pipe[0]);
        res.err = std::string("spawn failed: ") + strerror(rc);
        return res;
    }
    if (!input.empty()) {
        // A program may end without reading its input: the write then fails with EPIPE rather
        // than ending the test (the program was spawned with the default disposition).
        struct sigaction ignore {
        };
        struct sigaction old {
        };
        ignore.sa_handler = SIG_IGN;
        (void)sigaction(SIGPIPE, &ignore, &old);
        (void)!write(in_pipe[1], input.data(), input.size());
        (void)sigaction(SIGPIPE, &old, nullptr);
    }
    close(in_pipe[1]);

    pollfd fds[2] = {{out_pipe[0], POLLIN, 0}, {err_pipe[0], POLLIN, 0}};
    std::string *sinks[2] = {&res.out, &res.err};
    int open_fds = 2;
    char buf[4096];
    while (open_fds > 0) {
        if (poll(fds, 2, -1) < 0)
            break;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0)
                continue;
            ssize_t n = read(fds[i].fd, buf, sizeof(buf));
            if (n > 0) {
                sinks[i]->append(buf, static_cast<size_t>(n));
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open_fds;
            }
        }
    }
    int wstatus = 0;
    waitpid(pid, &wstatus, 0);
    res.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
    return res;
}

ToolSandbox::ToolSandbox(const std::vector<std::string> &init_args)
{
    std::string tmpl = (fs::temp_directory_path() / "vorn-sbx-XXXXXX").string();
    char *made = mkdtemp(tmpl.data());
    dir_ = made != nullptr ? made : tmpl;
    fs::create_directories(root() + "/etc");
    fs::create_directories(emu_dir());
    write_file(conf_path(), "");
    chmod(conf_path().c_str(), 0640);
    std::vector<std::string> args = {"init"};
    args.insert(args.end(), init_args.begin(), init_args.end());
    emu(args);
}

ToolSandbox::~ToolSandbox()
{
    std::error_code ec;
    fs::remove_all(dir_, ec);
}

std::map<std::string, std::string> ToolSandbox::env() const
{
    return {{"VORN_TEST_ROOT", root()}, {"KOPA_EMU_DIR", emu_dir()}};
}

namespace
{

// The words of VORN_TEST_WRAPPER, its program found on PATH; empty when unset.
const std::vector<std::string> &tool_wrapper()
{
    static const std::vector<std::string> words = [] {
        std::vector<std::string> w;
        const char *text = std::getenv("VORN_TEST_WRAPPER");
        std::istringstream in(text != nullptr ? text : "");
        for (std::string word; in >> word;)
            w.push_back(word);
        if (w.empty() || w[0].find('/') != std::string::npos)
            return w;
        std::istringstream path(std::getenv("PATH") != nullptr ? std::getenv("PATH") : "");
        for (std::string dir; std::getline(path, dir, ':');) {
            const std::string candidate = dir + "/" + w[0];
            if (!dir.empty() && access(candidate.c_str(), X_OK) == 0) {
                w[0] = candidate;
                break;
            }
        }
        return w;
    }();
    return words;
}

} // namespace

ProcResult ToolSandbox::tool(const std::vector<std::string> &args,
                             const std::map<std::string, std::string> &extra_env,
                             const std::string &input) const
{
    std::vector<std::string> argv = tool_wrapper();
    argv.push_back(vorn_tool_bin());
    argv.insert(argv.end(), args.begin(), args.end());
    auto e = env();
    for (const auto &[k, v] : extra_env)
        e[k] = v;
    return run_process(argv, e, input);
}

ProcResult ToolSandbox::emu(const std::vector<std::string> &args) const
{
    std::vector<std::string> argv = {kopa_emu_bin()};
    argv.insert(argv.end(), args.begin(), args.end());
    return run_process(argv, env());
}

std::string ToolSandbox::conf() const
{
    return read_file(conf_path());
}
void ToolSandbox::set_conf(const std::string &text) const
{
    write_file(conf_path(), text);
}
std::string ToolSandbox::run_log() const
{
    return read_file(run_log_path());
}
std::string ToolSandbox::driver_log() const
{
    return read_file(emu_dir() + "/driver.log");
}
