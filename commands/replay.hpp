// The per-item replay routines of saved settings: each reads its keys of the device's physical
// id and sets them again through the command's own setting routine. An absent key is success.
#pragma once

#include "main/cmd.hpp"

int32_t tool_cfg_ip_recovery(cmd_parse_info *info);
int32_t tool_cfg_gateway_recovery(cmd_parse_info *info);
int32_t tool_cfg_netdetect_recovery(cmd_parse_info *info);
int32_t tool_cfg_mtu_recovery(cmd_parse_info *info);
int32_t tool_cfg_mac_addr_recovery(cmd_parse_info *info);
int32_t tool_cfg_route_recovery(cmd_parse_info *info);
int32_t tool_cfg_roce_port_recovery(cmd_parse_info *info);
