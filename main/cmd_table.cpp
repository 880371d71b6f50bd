// The command table of vorn_tool: one row per command, in the order help lists them. Each
// command's words, operations and help live in its own file under commands/.
#include "main/cmd_table.hpp"

#include <cstring>

// Defined by the command files.
extern const CmdDesc kIpCmd, kGatewayCmd, kNetdetectCmd, kLldpCmd, kMacCmd, kCfgCmd, kLinkCmd,
    kDscpCmd, kShapingCmd, kMtuCmd, kNetHealthCmd, kArpCmd, kRouteCmd, kPciCmd, kContextCmd,
    kRegCmd, kOpticalCmd, kStatCmd, kCfgAllCmd, kTlsCmd, kVersionCmd, kVnicCmd, kProcessCmd,
    kUdpCmd, kBandwidthCmd, kStatusCmd, kGenericCmd, kEthTestCmd;
extern const CmdDesc kRoceTestCmd, kSpeedCmd, kDuplexCmd, kBackpressureCmd, kFecCmd, kPfcCmd,
    kTcCfgCmd, kCurTcBufCmd, kPrioTcCmd, kPingCmd, kSendArpCmd;

cmd_record g_cmd_list[kCmdListMax] = {
    {&kIpCmd},        {&kGatewayCmd}, {&kNetdetectCmd}, {&kLldpCmd},    {&kMacCmd},
    {&kCfgCmd},       {&kLinkCmd},    {&kDscpCmd},      {&kShapingCmd}, {&kMtuCmd},
    {&kNetHealthCmd}, {&kArpCmd},     {&kRouteCmd},     {&kPciCmd},     {&kContextCmd},
    {&kRegCmd},       {&kOpticalCmd}, {&kStatCmd},      {&kCfgAllCmd},  {&kTlsCmd},
    {&kVersionCmd},   {&kVnicCmd},    {&kProcessCmd},   {&kUdpCmd},     {&kBandwidthCmd},
    {&kStatusCmd},    {&kGenericCmd}, {&kEthTestCmd},
};

const cmd_record g_cmd_list_ext[kCmdListExtNum] = {
    {&kRoceTestCmd}, {&kSpeedCmd}, {&kDuplexCmd},  {&kBackpressureCmd},
    {&kFecCmd},      {&kPfcCmd},   {&kTcCfgCmd},   {&kCurTcBufCmd},
    {&kPrioTcCmd},   {&kPingCmd},  {&kSendArpCmd},
};

const char *cmd_record::dev_token() const
{
    return strcmp(cmd->major, "-i") == 0 ? "devid" : "";
}
