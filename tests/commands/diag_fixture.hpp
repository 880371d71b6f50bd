// Shared helpers of the diagnostics command tests: runs of the tool against a sandbox, the texts
// the front-end adds to a refusal, and the emulator's knobs.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/tool_sandbox.hpp"

namespace diag
{

inline const std::string kCount = "The total count of input parameters is wrong!\n";
inline const std::string kInvalid = "Get invalid parameters!\n";
inline const std::string kUnknown = "Get unknown option!\n";
inline const std::string kDeviceFailed = "Command execute failed!\n";
inline const std::string kExecFailed = "Cmd execute failed!\n";

/// The words of `line` ("''" stands for an empty word).
inline std::vector<std::string> words(const std::string &line)
{
    std::vector<std::string> out;
    std::istringstream in(line);
    for (std::string word; in >> word;)
        out.push_back(word == "''" ? "" : word);
    return out;
}

class DiagTest : public ::testing::Test
{
  protected:
    ToolSandbox sb_{{"--devices", "2"}};

    /// Runs vorn_tool -i 0 followed by the words of `line`.
    ProcResult run(const std::string &line,
                   const std::map<std::string, std::string> &env = {}) const
    {
        std::vector<std::string> args{"-i", "0"};
        for (std::string &w : words(line))
            args.push_back(std::move(w));
        return sb_.tool(args, env);
    }
    /// The parameter list the front-end prints after a parameter error of `cmd`.
    std::string usage(const std::string &cmd) const
    {
        const std::string err = run(cmd).err;
        return err.starts_with(kCount) ? err.substr(kCount.size()) : "(no usage: " + err + ")";
    }
    void emu_set(const std::string &field, const std::string &value) const
    {
        ProcResult r = sb_.emu({"set", "0", field, value});
        ASSERT_EQ(r.status, 0) << field << " " << value << ": " << r.err;
    }
    std::string emu_get(const std::string &field) const { return sb_.emu({"get", "0", field}).out; }
    /// The next command of `op` is refused by the firmware with result -1.
    void refuse_once(const std::string &op) const
    {
        ASSERT_EQ(sb_.emu({"fault", "add", "--op", op, "--result", "-1", "--count", "1"}).status, 0)
            << op;
    }
    /// Whether the run log has a CONFIG MAJOR line carrying `text`.
    bool config_logged(const std::string &text) const
    {
        const std::string log = sb_.run_log();
        for (size_t pos = log.find("CONFIG MAJOR "); pos != std::string::npos;
             pos = log.find("CONFIG MAJOR ", pos + 1)) {
            const size_t end = log.find('\n', pos);
            if (log.substr(pos, end - pos).find(text) != std::string::npos)
                return true;
        }
        return false;
    }
};

/// The value of the line "     <name>: <value>" of -stat -g output; -1 when absent.
inline long long counter(const std::string &out, const std::string &name)
{
    const std::string key = "     " + name + ": ";
    const size_t pos = out.find(key);
    return pos == std::string::npos ? -1 : std::stoll(out.substr(pos + key.size()));
}

} // namespace diag
