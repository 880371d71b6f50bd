// Shared fixture of the address, gateway, detection-address and route command tests: a sandbox
// of 8 devices on a server board (two groups of four) and helpers to read what a run left.
#pragma once

#include <gtest/gtest.h>

#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/tool_sandbox.hpp"

namespace l3
{

inline const char *kHelpIp = "   [-s]        : set ip cfg \n       address %s : set ip address, "
                             "such as x.x.x.x\n       netmask %s : set netmask, such as "
                             "x.x.x.x\n   [-g]        :get ip address and netmask \n";
inline const char *kHelpGateway = "   [-s]        : set gateway cfg \n       gateway %s : set "
                                  "gateway, such as x.x.x.x\n   [-g]        : get gateway "
                                  "address \n";
inline const char *kHelpNetdetect = "   [-s]        : set net detect cfg \n       address %s : "
                                    "set net detect ip address, such as x.x.x.x\n   [-g]        "
                                    ": get net detect cfg \n";
inline const char *kHelpRoute =
    "   [-g]        : get route table\n   [-a]        : add route\n       address %s: "
    "destination address, such as x.x.x.x\n       netmask %s: destination netmask, such as "
    "x.x.x.x\n       gateway %s: gateway address, such as x.x.x.x\n   [-d]        : del "
    "route\n       address %s: destination address, such as x.x.x.x\n       netmask %s: "
    "destination netmask, such as x.x.x.x\n   [-c]        : clear route\n";

/// The parameter list the front-end prints after a parameter error of `cmd`.
inline std::string usage(const std::string &cmd, const char *help)
{
    return "[ vorn_tool -i dev_id " + cmd + " ] needs the following parameters:\n" + help + "\n";
}

class L3Test : public ::testing::Test
{
  protected:
    ToolSandbox sb_{{"--devices", "8"}};

    /// Runs vorn_tool -i <dev> followed by `args`.
    ProcResult run(int dev, std::vector<std::string> args) const
    {
        args.insert(args.begin(), {"-i", std::to_string(dev)});
        return sb_.tool(args);
    }
    /// Runs a command that must succeed silently.
    void ok(int dev, const std::vector<std::string> &args) const
    {
        ProcResult r = run(dev, args);
        ASSERT_EQ(r.status, 0) << r.err;
        ASSERT_EQ(r.out + r.err, "");
    }
    void set_ip(int dev, const std::string &address, const std::string &netmask) const
    {
        ok(dev, {"-ip", "-s", "address", address, "netmask", netmask});
    }
    /// One field of the emulated device, without its trailing newline.
    std::string device(int dev, const std::string &field) const
    {
        std::string out = sb_.emu({"get", std::to_string(dev), field}).out;
        return out.substr(0, out.find_last_not_of('\n') + 1);
    }
    /// Everything the emulator shows of the host.
    std::string devices() const { return sb_.emu({"show"}).out; }
    /// The opcodes sent to the firmware since the journal was cleared, as "<logic>:<opcode>".
    std::vector<std::string> journal_ops() const
    {
        std::vector<std::string> ops;
        std::string text = sb_.emu({"journal"}).out;
        const std::regex rec("dev (\\d+) op 0x([0-9a-fA-F]+)");
        for (auto it = std::sregex_iterator(text.begin(), text.end(), rec);
             it != std::sregex_iterator(); ++it)
            ops.push_back((*it)[1].str() + ":" +
                          std::to_string(std::stoul((*it)[2].str(), nullptr, 16)));
        return ops;
    }
    void journal_restart() const
    {
        ASSERT_EQ(sb_.emu({"journal", "--on"}).status, 0);
        ASSERT_EQ(sb_.emu({"journal", "--clear"}).status, 0);
    }
    /// Number of stamped, attributed run-log CONFIG lines that carry `text` (a regex).
    int config_lines(const std::string &text) const
    {
        const std::regex line(
            "CONFIG MAJOR [^ ]*\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} "
            "[^ ]+ [^ :]+:\\d+ >>> " +
            text + "\n");
        std::string log = sb_.run_log();
        return static_cast<int>(std::distance(std::sregex_iterator(log.begin(), log.end(), line),
                                              std::sregex_iterator()));
    }
};

} // namespace l3
