// A throw-away world for end-to-end tests: a test root for the tool's absolute paths, an
// emulator state directory, and helpers to run vorn_tool and kopa-emu in it.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

struct ProcResult {
    int status = -1; ///< exit status, or 128 + signal
    std::string out; ///< standard output
    std::string err; ///< standard error
};

/// Runs `argv` (argv[0] a path) with `env` added to a clean environment (PATH kept) and
/// `input` on standard input; collects both streams. `in_child`, when given, runs in the child
/// between fork and exec (to set a resource limit, say): async-signal-safe calls only.
ProcResult run_process(const std::vector<std::string> &argv,
                       const std::map<std::string, std::string> &env, const std::string &input = "",
                       const std::function<void()> &in_child = {});

class ToolSandbox
{
  public:
    /// Makes a fresh directory with root/etc/vorn.conf (empty, mode 0640) and an emulator
    /// initialised by `kopa-emu init` followed by `init_args` (for example {"--devices", "8"}).
    explicit ToolSandbox(const std::vector<std::string> &init_args = {"--devices", "8"});
    ~ToolSandbox();
    ToolSandbox(const ToolSandbox &) = delete;
    ToolSandbox &operator=(const ToolSandbox &) = delete;

    /// Runs vorn_tool with `args` (without the program name). When VORN_TEST_WRAPPER names a
    /// command (words separated by blanks, such as "valgrind --error-exitcode=99 --quiet"), the
    /// tool runs under it.
    ProcResult tool(const std::vector<std::string> &args,
                    const std::map<std::string, std::string> &extra_env = {},
                    const std::string &input = "") const;
    /// Runs the emulator's control program with `args`.
    ProcResult emu(const std::vector<std::string> &args) const;

    /// Environment that points a process at this sandbox.
    std::map<std::string, std::string> env() const;

    const std::string &dir() const { return dir_; }
    std::string root() const { return dir_ + "/root"; }
    std::string emu_dir() const { return dir_ + "/emu"; }
    std::string conf_path() const { return root() + "/etc/vorn.conf"; }
    std::string run_log_path() const { return root() + "/var/log/vorn_tool/vorn.log"; }

    std::string conf() const; ///< contents of the configuration file
    void set_conf(const std::string &text) const;
    std::string run_log() const;    ///< contents of vorn.log ("" when absent)
    std::string driver_log() const; ///< the emulator's driver log ("" when absent)

  private:
    std::string dir_;
};

/// Whole contents of a file, "" when it cannot be read.
std::string read_file(const std::string &path);
/// Replaces a file's contents; returns false on failure.
bool write_file(const std::string &path, const std::string &text);
/// Path of the vorn_tool binary under test.
const char *vorn_tool_bin();
/// Path of the kopa-emu control program.
const char *kopa_emu_bin();
