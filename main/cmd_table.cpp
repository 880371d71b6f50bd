// The command table of vorn_tool: every command word with its handler, description and help.
#include "main/cmd_table.hpp"

#include "commands/handlers.hpp"

namespace {

// Help blocks: one line per operation, "   [op]" padded to 12 columns, then its keywords.
constexpr const char *kHelpIp =
    "   [-s]        : set ip cfg \n"
    "       address %s : set ip address, such as x.x.x.x\n"
    "       netmask %s : set netmask, such as x.x.x.x\n"
    "   [-g]        :get ip address and netmask \n";
constexpr const char *kHelpGateway =
    "   [-s]        : set gateway cfg \n"
    "       gateway %s : set gateway, such as x.x.x.x\n"
    "   [-g]        : get gateway address \n";
constexpr const char *kHelpNetdetect =
    "   [-s]        : set net detect cfg \n"
    "       address %s : set net detect ip address, such as x.x.x.x\n"
    "   [-g]        : get net detect cfg \n";
constexpr const char *kHelpLldp = "   [-g]        : get lldp cfg \n";
constexpr const char *kHelpMac =
    "   [-s]        : set mac address \n"
    "       mac %s : such as XX:XX:XX:XX:XX:XX\n"
    "   [-g]        : get mac address \n";
constexpr const char *kHelpCfg =
    "   [recovery]  : recover the saved cfg of the device \n"
    "   [status]    : get the status of the last cfg recovery \n";
constexpr const char *kHelpCfgAll = "   [recovery]  : recover the saved cfg of all devices \n";
constexpr const char *kHelpLink =
    "   [-s down]   : shut down eth port \n"
    "   [-g]        : get the eth ports link status, UP or DOWN \n";
constexpr const char *kHelpDscp =
    "   [-s]        : set dscp to tc map \n"
    "       dscp %d : dscp value, from 0 to 63\n"
    "       tc %d   : traffic class, from 0 to 7\n"
    "   [-g]        : get dscp to tc map \n";
constexpr const char *kHelpShaping =
    "   [-s]        : set port shaper \n"
    "       bw_limit %d : port bandwidth limit(Mbit/s)\n"
    "   [-g]        : get port shaper cfg \n";
constexpr const char *kHelpMtu =
    "   [-s]        : set mtu cfg \n"
    "       size %d : set mtu size, from 68 to 9702\n"
    "   [-g]        : get mtu cfg\n";
constexpr const char *kHelpNetHealth = "   [-g]        : get net health status \n";
constexpr const char *kHelpArp =
    "   [-a]        : add arp entry \n"
    "       dev %s  : eth port, such as eth0\n"
    "       ip %s   : ip address, such as x.x.x.x\n"
    "       mac %s  : mac address, such as XX:XX:XX:XX:XX:XX\n"
    "   [-d]        : del arp entry \n"
    "       dev %s  : eth port, such as eth0\n"
    "       ip %s   : ip address, such as x.x.x.x\n"
    "   [-g]        : get arp table \n";
constexpr const char *kHelpRoute =
    "   [-g]        : get route table\n"
    "   [-a]        : add route\n"
    "       address %s: destination address, such as x.x.x.x\n"
    "       netmask %s: destination netmask, such as x.x.x.x\n"
    "       gateway %s: gateway address, such as x.x.x.x\n"
    "   [-d]        : del route\n"
    "       address %s: destination address, such as x.x.x.x\n"
    "       netmask %s: destination netmask, such as x.x.x.x\n"
    "   [-c]        : clear route\n";
constexpr const char *kHelpPci = "   [-g]        : get pci info \n";
constexpr const char *kHelpContext =
    "   [-g]        : get roce context \n"
    "       qpn %d  : queue pair number\n";
constexpr const char *kHelpReg = "   [-g]        : get eth register info \n";
constexpr const char *kHelpOptical = "   [-g]        : get optical module info \n";
constexpr const char *kHelpStat =
    "   [-g]        : get packet statistics \n"
    "   [-c]        : clear packet statistics \n";
constexpr const char *kHelpTls =
    "   [-s]        : set tls cfg\n"
    "       enable %d : set tls enable, 0: disable, 1: enable\n"
    "       host      : if you want to set tls enable on host, you need to add host flag on the tail\n"
    "       or\n"
    "       alarm %d  : set tls alarm(days), from 7 to 180\n"
    "       host      : if you want to set tls alarm on host, you need to add host flag on the tail\n"
    "       or\n"
    "       path %s   : set tls cfg file path, such as xxx\n"
    "       pri %s    : set tls private key, only support pem file format\n"
    "       pub %s    : set tls public cert, only support pem file format\n"
    "       ca1 %s    : set tls first level CA, only support pem file format\n"
    "       ca2 %s    : set tls second level CA, only support pem format\n"
    "       ......            \n"
    "       ca14 %s   : set tls fourteen level CA(the deepest CA level), only support pem format\n"
    "       crl %s    : set tls certificate revocation list, only support crl format\n"
    "       host      : if you want to set tls certificate suite on host, you need to add host flag on the tail\n"
    "   [-g]        : get tls cfg\n"
    "       host      : if you want to get tls certificate suite on host, you need to add host flag on the tail\n"
    "   [-c]        : clear tls cfg\n"
    "       host      : if you want to clear tls certificate suite on host, you need to add host flag on the tail\n";
constexpr const char *kHelpVersion = "   [-g]        : get firmware version \n";
constexpr const char *kHelpVnic = "   [-g]        : get vnic link status, ip address and netmask \n";
constexpr const char *kHelpProcess = "   [-g]        : get device process info \n";
constexpr const char *kHelpUdp =
    "   [-s]        : set roce port port range 4097~65535\n"
    "       port %d : roce UDP port\n"
    "   [-g]        : get roce udp port\n";
constexpr const char *kHelpBandwidth =
    "   [-g]        : get tx and rx bandwidth \n"
    "       -t %d   : sampling period(ms), from 100 to 10000\n";
constexpr const char *kHelpStatus = "   [-g]        : get netdev status \n";
constexpr const char *kHelpGeneric =
    "   [-s]        : set generic cfg \n"
    "       speed %d : static speed(Mbit/s), such as 100000\n"
    "       or\n"
    "       auto_adapt %d : optical auto adapt, 0: disable, 1: enable\n"
    "   [-g]        : get generic cfg \n";
constexpr const char *kHelpEthTest = "   [-g]        : get eth self-check info \n";
constexpr const char *kHelpRoceTest =
    "   [-s]        : start roce perftest \n"
    "       ip %s   : peer ip address, such as x.x.x.x\n"
    "       -n %d   : iterations, from 5 to 20000\n"
    "   [-g]        : get roce perftest status \n"
    "   [-r]        : get roce perftest report \n"
    "   [-c]        : stop roce perftest \n";
constexpr const char *kHelpSpeed = "   [-g]        : get eth port speed \n";
constexpr const char *kHelpDuplex = "   [-g]        : get eth port duplex mode \n";
constexpr const char *kHelpBackpressure = "   [-g]        : get backpressure info \n";
constexpr const char *kHelpFec =
    "   [-s]        : set fec mode \n"
    "       mode %d : 0: off, 1: rs-fec, 2: base-r fec\n"
    "   [-g]        : get fec mode \n";
constexpr const char *kHelpPfc =
    "   [-s]        : set pfc enable \n"
    "       bitmap %s : enable of priority 0~7, such as 0,0,0,1,0,0,0,0\n"
    "   [-g]        : get pfc enable \n";
constexpr const char *kHelpTcCfg =
    "   [-s]        : set traffic class cfg \n"
    "       tc_bw %s : bandwidth percent of tc0~tc7, such as 10,10,10,10,10,10,20,20\n"
    "       tc_mode %s : mode of tc0~tc7, 0: strict, 1: weighted, such as 1,1,1,1,1,1,1,1\n"
    "   [-g]        : get traffic class cfg \n";
constexpr const char *kHelpTcBuf =
    "   [-g]        : get maximum historical tc buffer usage \n"
    "       tc %d   : traffic class, from 0 to 7\n";
constexpr const char *kHelpPrioTc =
    "   [-s]        : set priority map tc \n"
    "       prio_tc %s : tc of priority 0~7, such as 0,1,2,3,4,5,6,7\n"
    "   [-g]        : get priority map tc \n";
constexpr const char *kHelpPing =
    "   [-g]        : ping a remote address from the device \n"
    "       address %s : destination address, such as x.x.x.x\n"
    "       -s %d   : packet size(bytes)\n";
constexpr const char *kHelpSendArp =
    "   [-s]        : set gratuitous arp \n"
    "       period %d : sending period(s)\n"
    "       status %d : 0: off, 1: on\n"
    "   [-g]        : get gratuitous arp cfg \n";

}  // namespace

// A row whose handler is tool_cmd_not_available is switched to the command's own handler when
// the command is built.
cmd_record g_cmd_list[kCmdListMax] = {
    {"-i", "devid", "-ip", tool_ip_cmd_execute, "ip cfg cmd", kHelpIp},
    {"-i", "devid", "-gateway", tool_gateway_cmd_execute, "gateway cfg cmd", kHelpGateway},
    {"-i", "devid", "-netdetect", tool_netdetect_cmd_execute, "net detect cfg cmd", kHelpNetdetect},
    {"-i", "devid", "-lldp", tool_lldp_cmd_execute, "lldp cfg cmd", kHelpLldp},
    {"-i", "devid", "-mac", tool_mac_cmd_execute, "mac cfg cmd", kHelpMac},
    {"-i", "devid", "-cfg", tool_cmd_not_available, "cfg cmd", kHelpCfg},
    {"-i", "devid", "-link", tool_link_cmd_execute, "link related cmd", kHelpLink},
    {"-i", "devid", "-dscp_to_tc", tool_cmd_not_available, "dscp to tc cmd", kHelpDscp},
    {"-i", "devid", "-shaping", tool_cmd_not_available, "cfg shaper port bw limit cmd", kHelpShaping},
    {"-i", "devid", "-mtu", tool_mtu_cmd_execute, "mtu cfg cmd", kHelpMtu},
    {"-i", "devid", "-net_health", tool_net_health_cmd_execute, "net health cmd", kHelpNetHealth},
    {"-i", "devid", "-arp", tool_cmd_not_available, "arp table cmd", kHelpArp},
    {"-i", "devid", "-route", tool_route_table_cmd_execute, "route table cmd", kHelpRoute},
    {"-i", "devid", "-pci", tool_cmd_not_available, "pci table cmd", kHelpPci},
    {"-i", "devid", "-context", tool_cmd_not_available, "roce context cmd", kHelpContext},
    {"-i", "devid", "-reg", tool_cmd_not_available, "get reg cmd", kHelpReg},
    {"-i", "devid", "-optical", tool_cmd_not_available, "get optical info cmd", kHelpOptical},
    {"-i", "devid", "-stat", tool_cmd_not_available, "packet statistics cmd", kHelpStat},
    {"-a", "", "-cfg", tool_cmd_not_available, "cfg cmd", kHelpCfgAll},
    {"-i", "devid", "-tls", tool_cmd_not_available, "tls cfg cmd", kHelpTls},
    {"-i", "devid", "-version", tool_cmd_not_available, "version cmd", kHelpVersion},
    {"-i", "devid", "-vnic", tool_vnic_cmd_execute, "vnic cmd", kHelpVnic},
    {"-i", "devid", "-process", tool_cmd_not_available, "process cmd", kHelpProcess},
    {"-i", "devid", "-udp", tool_roce_port_cmd_execute, "roce port set cmd", kHelpUdp},
    {"-i", "devid", "-bandwidth", tool_cmd_not_available, "bandwidth cmd", kHelpBandwidth},
    {"-i", "devid", "-status", tool_cmd_not_available, "netdev status cmd", kHelpStatus},
    {"-i", "devid", "-generic", tool_cmd_not_available, "generic info cmd", kHelpGeneric},
    {"-i", "devid", "-eth_test", tool_cmd_not_available, "eth self-check info cmd", kHelpEthTest},
};

const cmd_record g_cmd_list_ext[kCmdListExtNum] = {
    {"-i", "devid", "-roce_test", tool_cmd_not_available, "roce test cmd", kHelpRoceTest},
    {"-i", "devid", "-speed", tool_cmd_not_available, "speed related cmd", kHelpSpeed},
    {"-i", "devid", "-duplex", tool_cmd_not_available, "duplex related cmd", kHelpDuplex},
    {"-i", "devid", "-backpressure", tool_cmd_not_available, "backpressure cmd", kHelpBackpressure},
    {"-i", "devid", "-fec", tool_cmd_not_available, "fec related cmd", kHelpFec},
    {"-i", "devid", "-pfc", tool_cmd_not_available, "pfc enable cfg cmd", kHelpPfc},
    {"-i", "devid", "-tc_cfg", tool_cmd_not_available, "traffic class cfg cmd", kHelpTcCfg},
    {"-i", "devid", "-cur_tc_buf", tool_cmd_not_available, "maximum historical tc usage cmd", kHelpTcBuf},
    {"-i", "devid", "-prio_tc", tool_cmd_not_available, "priority map TC cmd", kHelpPrioTc},
    {"-i", "devid", "-ping", tool_cmd_not_available, "ping cmd", kHelpPing},
    {"-i", "devid", "-send_arp", tool_cmd_not_available, "send gratuitous arp related cmd", kHelpSendArp},
};
