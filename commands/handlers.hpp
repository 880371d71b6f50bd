// The command handlers: one per row of the command table (the handler contract is in
// main/cmd.hpp). A handler is declared here when its command is built.
#pragma once

#include "main/cmd.hpp"

// Port configuration.
int32_t tool_ip_cmd_execute(int argc, char **argv, cmd_parse_info *info);
int32_t tool_gateway_cmd_execute(int argc, char **argv, cmd_parse_info *info);
int32_t tool_netdetect_cmd_execute(int argc, char **argv, cmd_parse_info *info);
int32_t tool_route_table_cmd_execute(int argc, char **argv, cmd_parse_info *info);
int32_t tool_mac_cmd_execute(int argc, char **argv, cmd_parse_info *info);
int32_t tool_mtu_cmd_execute(int argc, char **argv, cmd_parse_info *info);
int32_t tool_link_cmd_execute(int argc, char **argv, cmd_parse_info *info);
int32_t tool_roce_port_cmd_execute(int argc, char **argv, cmd_parse_info *info);
int32_t tool_lldp_cmd_execute(int argc, char **argv, cmd_parse_info *info);
int32_t tool_vnic_cmd_execute(int argc, char **argv, cmd_parse_info *info);

// Diagnostics.
int32_t tool_net_health_cmd_execute(int argc, char **argv, cmd_parse_info *info);

/// Handler of the rows whose command is not built yet: says so and returns kErrExec.
int32_t tool_cmd_not_available(int argc, char **argv, cmd_parse_info *info);
