// Running vornctl and the Python checkers of its output in a test sandbox.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/tool_sandbox.hpp"

/// Runs vornctl with `args` in the sandbox `sb`.
inline ProcResult run_ctl(const ToolSandbox &sb, const std::vector<std::string> &args,
                          const std::map<std::string, std::string> &extra_env = {})
{
    std::vector<std::string> argv = {VORNCTL_BIN};
    argv.insert(argv.end(), args.begin(), args.end());
    auto env = sb.env();
    for (const auto &[k, v] : extra_env)
        env[k] = v;
    return run_process(argv, env);
}

/// Runs the Python program `code` with `args`; status 127 when there is no interpreter.
inline ProcResult run_python(const std::string &code, const std::vector<std::string> &args = {})
{
    if (std::string(VORN_PYTHON3).empty())
        return ProcResult{127, "", "no python3"};
    std::vector<std::string> argv = {VORN_PYTHON3, "-c", code};
    argv.insert(argv.end(), args.begin(), args.end());
    return run_process(argv, {});
}

/// Whether the Python module `module` can be imported.
inline bool python_has(const std::string &module)
{
    return run_python("import " + module).status == 0;
}

/// Skips the test, naming the Debian package to install, when `module` is missing.
#define SKIP_WITHOUT_PYTHON_MODULE(module, package)                                                \
    do {                                                                                           \
        if (!python_has(module))                                                                   \
            GTEST_SKIP() << "the Python module " module " is missing (Debian package " package     \
                            ", installed by scripts/deps.sh): this check needs it";                \
    } while (0)

/// Runs vorn_tool on device `id`; fails the test on a non-zero status.
inline void set_on(const ToolSandbox &sb, int id, std::vector<std::string> args)
{
    args.insert(args.begin(), {"-i", std::to_string(id)});
    const ProcResult r = sb.tool(args);
    ASSERT_EQ(r.status, 0) << args[2] << " on dev " << id << ": " << r.err;
}
