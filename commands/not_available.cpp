// The commands this build does not carry yet: their words, help and audit masks, and the
// stand-in that says so. A command moves to its own file when it is built.
#include <cstdio>

#include "base/result.hpp"
#include "main/cmd.hpp"

namespace
{

int32_t tool_cmd_not_available(int /*argc*/, char ** /*argv*/, cmd_parse_info *info);

constexpr const char *kHelpPci = "   [-g]        : get pci info \n";
constexpr const char *kHelpContext = "   [-g]        : get roce context \n"
                                     "       qpn %d  : queue pair number\n";
constexpr const char *kHelpReg = "   [-g]        : get eth register info \n";
constexpr const char *kHelpOptical = "   [-g]        : get optical module info \n";
constexpr const char *kHelpStat = "   [-g]        : get packet statistics \n"
                                  "   [-c]        : clear packet statistics \n";
constexpr const char *kHelpVersion = "   [-g]        : get firmware version \n";
constexpr const char *kHelpProcess = "   [-g]        : get device process info \n";
constexpr const char *kHelpBandwidth = "   [-g]        : get tx and rx bandwidth \n"
                                       "       -t %d   : sampling period(ms), from 100 to 10000\n";
constexpr const char *kHelpStatus = "   [-g]        : get netdev status \n";
constexpr const char *kHelpEthTest = "   [-g]        : get eth self-check info \n";
constexpr const char *kHelpRoceTest = "   [-s]        : start roce perftest \n"
                                      "       ip %s   : peer ip address, such as x.x.x.x\n"
                                      "       -n %d   : iterations, from 5 to 20000\n"
                                      "   [-g]        : get roce perftest status \n"
                                      "   [-r]        : get roce perftest report \n"
                                      "   [-c]        : stop roce perftest \n";
constexpr const char *kHelpSpeed = "   [-g]        : get eth port speed \n";
constexpr const char *kHelpDuplex = "   [-g]        : get eth port duplex mode \n";
constexpr const char *kHelpBackpressure = "   [-g]        : get backpressure info \n";
constexpr const char *kHelpPing = "   [-g]        : ping a remote address from the device \n"
                                  "       address %s : destination address, such as x.x.x.x\n"
                                  "       -s %d   : packet size(bytes)\n";

// The name of the command the run asked for.
const char *asked_name(const cmd_parse_info *info)
{
    if (info == nullptr || info->argv == nullptr || info->first_arg < 1 ||
        info->first_arg > info->argc)
        return "";
    return info->argv[info->first_arg - 1];
}

int32_t tool_cmd_not_available(int /*argc*/, char ** /*argv*/, cmd_parse_info *info)
{
    (void)fprintf(stderr, "Command %s is not available in this build yet.\n", asked_name(info));
    return kErrExec;
}

} // namespace

extern constexpr CmdDesc kPciCmd{
    .major = "-i",
    .name = "-pci",
    .handler = "tool_pci_cmd_execute",
    .description = "pci table cmd",
    .help = kHelpPci,
    .whole = tool_cmd_not_available,
};

extern constexpr CmdDesc kContextCmd{
    .major = "-i",
    .name = "-context",
    .handler = "tool_roce_context_cmd_execute",
    .description = "roce context cmd",
    .help = kHelpContext,
    .whole = tool_cmd_not_available,
};

extern constexpr CmdDesc kRegCmd{
    .major = "-i",
    .name = "-reg",
    .handler = "tool_reg_cmd_execute",
    .description = "get reg cmd",
    .help = kHelpReg,
    .whole = tool_cmd_not_available,
};

extern constexpr CmdDesc kOpticalCmd{
    .major = "-i",
    .name = "-optical",
    .handler = "tool_optical_cmd_execute",
    .description = "get optical info cmd",
    .help = kHelpOptical,
    .whole = tool_cmd_not_available,
};

extern constexpr CmdDesc kStatCmd{
    .major = "-i",
    .name = "-stat",
    .handler = "tool_stat_cmd_execute",
    .description = "packet statistics cmd",
    .help = kHelpStat,
    .whole = tool_cmd_not_available,
};

extern constexpr CmdDesc kVersionCmd{
    .major = "-i",
    .name = "-version",
    .handler = "tool_version_cmd_execute",
    .description = "version cmd",
    .help = kHelpVersion,
    .whole = tool_cmd_not_available,
};

extern constexpr CmdDesc kProcessCmd{
    .major = "-i",
    .name = "-process",
    .handler = "tool_process_cmd_execute",
    .description = "process cmd",
    .help = kHelpProcess,
    .whole = tool_cmd_not_available,
};

extern constexpr CmdDesc kBandwidthCmd{
    .major = "-i",
    .name = "-bandwidth",
    .handler = "tool_bandwidth_cmd_execute",
    .description = "bandwidth cmd",
    .help = kHelpBandwidth,
    .whole = tool_cmd_not_available,
};

extern constexpr CmdDesc kStatusCmd{
    .major = "-i",
    .name = "-status",
    .handler = "tool_netdev_status_cmd_execute",
    .description = "netdev status cmd",
    .help = kHelpStatus,
    .whole = tool_cmd_not_available,
};

extern constexpr CmdDesc kEthTestCmd{
    .major = "-i",
    .name = "-eth_test",
    .handler = "tool_eth_test_cmd_execute",
    .description = "eth self-check info cmd",
    .help = kHelpEthTest,
    .whole = tool_cmd_not_available,
};

extern constexpr CmdDesc kRoceTestCmd{
    .major = "-i",
    .name = "-roce_test",
    .handler = "tool_roce_test_cmd_execute",
    .description = "roce test cmd",
    .help = kHelpRoceTest,
    .whole = tool_cmd_not_available,
};

extern constexpr CmdDesc kSpeedCmd{
    .major = "-i",
    .name = "-speed",
    .handler = "tool_speed_cmd_execute",
    .description = "speed related cmd",
    .help = kHelpSpeed,
    .whole = tool_cmd_not_available,
};

extern constexpr CmdDesc kDuplexCmd{
    .major = "-i",
    .name = "-duplex",
    .handler = "tool_duplex_cmd_execute",
    .description = "duplex related cmd",
    .help = kHelpDuplex,
    .whole = tool_cmd_not_available,
};

extern constexpr CmdDesc kBackpressureCmd{
    .major = "-i",
    .name = "-backpressure",
    .handler = "tool_bp_cmd_execute",
    .description = "backpressure cmd",
    .help = kHelpBackpressure,
    .whole = tool_cmd_not_available,
};

extern constexpr CmdDesc kPingCmd{
    .major = "-i",
    .name = "-ping",
    .handler = "tool_ping_cmd_execute",
    .description = "ping cmd",
    .help = kHelpPing,
    .whole = tool_cmd_not_available,
};
