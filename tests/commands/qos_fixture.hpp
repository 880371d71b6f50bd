// Shared helpers of the QoS command tests: runs of the tool against a sandbox, and the QoS state
// of a device as the tool shows it.
#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/support/tool_sandbox.hpp"

namespace qos
{

/// Runs vorn_tool -i <phy> followed by the words of `line` ("''" stands for an empty word).
inline ProcResult run(const ToolSandbox &sb, int phy, const std::string &line)
{
    std::vector<std::string> args{"-i", std::to_string(phy)};
    std::istringstream words(line);
    for (std::string word; words >> word;)
        args.push_back(word == "''" ? "" : word);
    return sb.tool(args);
}

/// Everything the QoS queries print of a device.
inline std::string qos_state(const ToolSandbox &sb, int phy)
{
    std::string out;
    for (const char *cmd : {"-dscp_to_tc", "-shaping", "-pfc", "-tc_cfg", "-prio_tc"})
        out += run(sb, phy, std::string(cmd) + " -g").out;
    return out;
}

/// The DSCP map as -dscp_to_tc -g prints it: the emulator's default (class = dscp / 8) but for
/// the entries of `changed` (dscp, tc).
inline std::string dscp_table(const std::vector<std::pair<int, int>> &changed = {})
{
    int tc[64];
    for (int d = 0; d < 64; ++d)
        tc[d] = d / 8;
    for (const auto &[d, t] : changed)
        tc[d] = t;
    std::string out;
    for (int d = 0; d < 64; ++d)
        out += (d % 8 == 0 ? "dscp-tc " : " ") + std::to_string(d) + ":" + std::to_string(tc[d]) +
               (d % 8 == 7 ? "\n" : "");
    return out;
}

} // namespace qos
