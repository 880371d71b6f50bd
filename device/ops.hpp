// The device operation catalogue: one function per firmware command, each filling a channel
// parameter block with its opcode, request and reply sizes and handing it to the channel.
//
// Every operation takes the logical id (0..15) first and returns 0, the channel's negative code
// when the exchange failed, or the firmware's non-zero result when the firmware refused; -13
// also prints "permission denied: pls check this cmd run permission.\n" on standard error.
#pragma once

#include <cstdint>

#include "platform/kopa_platform.h"

// Network detection address.
[[nodiscard]] int kopa_set_net_detect_ip_address(uint32_t logic_id, uint32_t address);
[[nodiscard]] int kopa_get_net_detect_ip_address(uint32_t logic_id, uint32_t port_id,
                                                 uint32_t *address);

// Default gateway; `gateway` in network byte order. The get answers the physical id of the
// device that holds the group's gateway in `port`.
[[nodiscard]] int kopa_set_default_gateway_address(uint32_t logic_id, uint32_t port_id,
                                                   uint32_t gateway);
[[nodiscard]] int kopa_del_default_gateway_address(uint32_t logic_id, uint32_t port_id,
                                                   uint32_t gateway);
[[nodiscard]] int kopa_get_default_gateway_address(uint32_t logic_id, uint32_t *gateway,
                                                   uint32_t *port);

/// Prints the LLDP neighbour text with "%s\n".
[[nodiscard]] int kopa_lldp_get_neighbor_info(uint32_t logic_id);

[[nodiscard]] int kopa_get_mac_address(uint32_t logic_id, uint32_t port_id, uint8_t mac[6]);
[[nodiscard]] int kopa_set_mac_address(uint32_t logic_id, uint32_t port_id, const uint8_t mac[6]);

[[nodiscard]] int kopa_set_netdev_link(uint32_t logic_id, uint32_t port_id, uint32_t state);
[[nodiscard]] int kopa_get_netdev_link(uint32_t logic_id, uint32_t port_id, uint32_t *state);

[[nodiscard]] int kopa_set_mtu(uint32_t logic_id, uint32_t port_id, uint32_t mtu);
/// Prints "mtu:%u\n".
[[nodiscard]] int kopa_get_mtu(uint32_t logic_id, uint32_t port_id);

// Route table. The add and delete pass a 4-byte reply buffer; the read carries the tool's pid.
[[nodiscard]] int kopa_get_route_table(uint32_t logic_id, uint32_t port_id, char *buf,
                                       uint32_t len);
[[nodiscard]] int kopa_add_route_table(uint32_t logic_id, uint32_t port_id,
                                       const kopa_route_record *route);
[[nodiscard]] int kopa_del_route_table(uint32_t logic_id, uint32_t port_id,
                                       const kopa_route_record *route);

[[nodiscard]] int kopa_set_roce_port(uint32_t logic_id, uint32_t port_id, uint32_t udp_port);
/// Prints "udp_port:%d\n".
[[nodiscard]] int kopa_get_roce_port(uint32_t logic_id, uint32_t port_id);

// Recovery status kept on the device: 0 none, 1 start, 2 fail, 3 success.
[[nodiscard]] int kopa_set_cfg_status(uint32_t logic_id, uint32_t status);
[[nodiscard]] int kopa_get_cfg_status(uint32_t logic_id, uint32_t *status);

[[nodiscard]] int kopa_get_vnic_status(uint32_t logic_id, uint32_t port_id, uint32_t *link);

// TLS.
[[nodiscard]] int kopa_get_tls_digital_envelope_pub_ky(uint32_t logic_id,
                                                       kopa_envelope_pub_key *key);
/// Sends the TLS configuration record of TLS_CFG_SIZE bytes.
[[nodiscard]] int kopa_set_tls_cfg(uint32_t logic_id, const uint8_t *blob);
[[nodiscard]] int kopa_get_tls_cfg(uint32_t logic_id, uint32_t port_id,
                                   kopa_tls_cert_info *records, uint32_t count);
[[nodiscard]] int kopa_clear_tls_cfg(uint32_t logic_id, uint32_t port_id);
[[nodiscard]] int kopa_set_tls_enable(uint32_t logic_id, uint32_t value);
[[nodiscard]] int kopa_set_tls_alarm(uint32_t logic_id, uint32_t days);

[[nodiscard]] int kopa_get_firmware_version(uint32_t logic_id, char *buf, uint32_t len);
[[nodiscard]] int kopa_get_eth_duplex(uint32_t logic_id, uint32_t *duplex);
