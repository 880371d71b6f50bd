// The device operation catalogue: one function per firmware command, each filling a channel
// parameter block with its opcode, request and reply sizes and handing it to the channel.
//
// Every operation takes the logical id (0..15) first and returns 0, the channel's negative code
// when the exchange failed, or the firmware's non-zero result when the firmware refused; -13
// also prints "permission denied: pls check this cmd run permission.\n" on standard error.
// A get whose reply is a record of fixed size (the catalogue's, or one record of the project's
// layout where the catalogue leaves the length to the caller) returns -22 when the reply does
// not fill it, and then prints nothing; replies whose length the device chooses (texts, tables,
// dumps, the other caller-sized reads) are taken as they come.
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

/// Prints the LLDP neighbour text with "%s\n", control characters escaped (print_escaped). A
/// reply without a byte carries no text: -22, nothing printed.
[[nodiscard]] int kopa_lldp_get_neighbor_info(uint32_t logic_id);

[[nodiscard]] int kopa_get_mac_address(uint32_t logic_id, uint32_t port_id, uint8_t mac[6]);
[[nodiscard]] int kopa_set_mac_address(uint32_t logic_id, uint32_t port_id, const uint8_t mac[6]);

[[nodiscard]] int kopa_set_netdev_link(uint32_t logic_id, uint32_t port_id, uint32_t state);
[[nodiscard]] int kopa_get_netdev_link(uint32_t logic_id, uint32_t port_id, uint32_t *state);

[[nodiscard]] int kopa_set_mtu(uint32_t logic_id, uint32_t port_id, uint32_t mtu);
/// Prints "mtu:%u\n".
[[nodiscard]] int kopa_get_mtu(uint32_t logic_id, uint32_t port_id);
/// The same read without printing.
[[nodiscard]] int kopa_read_mtu(uint32_t logic_id, uint32_t port_id, uint32_t *mtu);

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
/// The same read without printing.
[[nodiscard]] int kopa_read_roce_port(uint32_t logic_id, uint32_t port_id, uint32_t *udp_port);

// Recovery status kept on the device: 0 none, 1 start, 2 fail, 3 success.
[[nodiscard]] int kopa_set_cfg_status(uint32_t logic_id, uint32_t status);
[[nodiscard]] int kopa_get_cfg_status(uint32_t logic_id, uint32_t *status);

[[nodiscard]] int kopa_get_vnic_status(uint32_t logic_id, uint32_t port_id, uint32_t *link);

// TLS.
[[nodiscard]] int kopa_get_tls_digital_envelope_pub_ky(uint32_t logic_id,
                                                       kopa_envelope_pub_key *key);
/// Sends the TLS configuration record of TLS_CFG_SIZE bytes.
[[nodiscard]] int kopa_set_tls_cfg(uint32_t logic_id, const uint8_t *blob);
[[nodiscard]] int kopa_get_tls_cfg(uint32_t logic_id, uint32_t port_id, kopa_tls_cert_info *records,
                                   uint32_t count);
[[nodiscard]] int kopa_clear_tls_cfg(uint32_t logic_id, uint32_t port_id);
[[nodiscard]] int kopa_set_tls_enable(uint32_t logic_id, uint32_t value);
[[nodiscard]] int kopa_set_tls_alarm(uint32_t logic_id, uint32_t days);

[[nodiscard]] int kopa_get_firmware_version(uint32_t logic_id, char *buf, uint32_t len);
[[nodiscard]] int kopa_get_eth_duplex(uint32_t logic_id, uint32_t *duplex);

// Traffic classes and shaping.
[[nodiscard]] int kopa_set_dscp_map(uint32_t logic_id, const kopa_dscp_map_set *map);
[[nodiscard]] int kopa_get_dscp_map(uint32_t logic_id, kopa_dscp_map *map);
[[nodiscard]] int kopa_set_port_shaping(uint32_t logic_id, const kopa_shaping_set *shaping);
[[nodiscard]] int kopa_get_port_shaping(uint32_t logic_id, kopa_shaping_info *shaping);
[[nodiscard]] int kopa_get_pfc_enabled(uint32_t logic_id, kopa_pfc_info *pfc);
/// Sends `len` bytes of the caller's PFC record.
[[nodiscard]] int kopa_set_pfc_enabled(uint32_t logic_id, const void *data, uint32_t len);
[[nodiscard]] int kopa_get_tc_cfg(uint32_t logic_id, kopa_tc_cfg_info *cfg);
[[nodiscard]] int kopa_set_tc_cfg(uint32_t logic_id, const kopa_tc_cfg_set *cfg);
/// Buffer use of traffic class `tc` into `used`.
[[nodiscard]] int kopa_get_current_tc_used(uint32_t logic_id, uint32_t tc, uint32_t *used);
[[nodiscard]] int kopa_get_prio_tc_info(uint32_t logic_id, void *buf, uint32_t len);
[[nodiscard]] int kopa_set_prio_tc_info(uint32_t logic_id, const void *data, uint32_t len);

// Gratuitous ARP, generic settings and optical adaptation (caller-given request records).
[[nodiscard]] int kopa_get_gratuitous_arp_info(uint32_t logic_id, uint32_t port_id,
                                               kopa_garp_info *info);
[[nodiscard]] int kopa_set_gratuitous_arp_info(uint32_t logic_id, const void *data, uint32_t len);
[[nodiscard]] int kopa_set_generic_info(uint32_t logic_id, const void *data, uint32_t len);
[[nodiscard]] int kopa_set_optical_auto_adapt(uint32_t logic_id, const void *data, uint32_t len);

// Port statistics and state. The caller-given lengths of the operations that answer one
// record of the project's layout (platform/kopa_platform.h) are that record's size, and the
// reply must fill it, as for the fixed-size gets.
[[nodiscard]] int kopa_get_optical_info(uint32_t logic_id, kopa_optical_info *info);
[[nodiscard]] int kopa_get_netdev_stat(uint32_t logic_id, kopa_netdev_stat *stat);
[[nodiscard]] int kopa_clear_netdev_stat(uint32_t logic_id);
/// Carries the tool's pid.
[[nodiscard]] int kopa_get_netdev_status(uint32_t logic_id, kopa_netdev_status *status);
[[nodiscard]] int kopa_get_link_his_stat(uint32_t logic_id, void *buf, uint32_t len);
[[nodiscard]] int kopa_clear_link_his_stat(uint32_t logic_id);
[[nodiscard]] int kopa_get_eth_speed(uint32_t logic_id, uint32_t *speed);
[[nodiscard]] int kopa_get_fec_info(uint32_t logic_id, uint32_t *fec);
[[nodiscard]] int kopa_set_fec_info(uint32_t logic_id, uint8_t mode);
/// Runs the port self-test of `type` (KOPA_ETH_TEST_ALL) and answers its report.
[[nodiscard]] int kopa_get_eth_test_info(uint32_t logic_id, uint8_t type, kopa_eth_test_info *info);
/// The back-pressure state of the port's scheduler.
[[nodiscard]] int kopa_get_ssu_reg(uint32_t logic_id, kopa_backpressure_info *info);

// Device, PCIe and registers. The list reads take the capacity in records in `*count` and
// leave there the number of whole records the device answered.
[[nodiscard]] int kopa_get_pci_info(uint32_t logic_id, kopa_pci_info *info);
[[nodiscard]] int kopa_get_device_process(uint32_t logic_id, kopa_process_record *records,
                                          uint32_t *count);
/// The dump of the Ethernet register block, one record per register.
[[nodiscard]] int kopa_get_eth_reg_info(uint32_t logic_id, kopa_reg_record *records,
                                        uint32_t *count);
/// The value of the register at `offset`.
[[nodiscard]] int kopa_get_network_register(uint32_t logic_id, uint32_t offset, uint32_t *value);

// RoCE diagnostics and performance test.
[[nodiscard]] int kopa_get_roce_context(uint32_t logic_id, const kopa_roce_context_query *query,
                                        kopa_roce_qp_context *context);
[[nodiscard]] int kopa_get_roce_dfx_len(uint32_t logic_id, void *buf, uint32_t len);
[[nodiscard]] int kopa_get_roce_dfx_data(uint32_t logic_id, uint32_t index, void *buf,
                                         uint32_t len);
[[nodiscard]] int kopa_start_roce_perftest(uint32_t logic_id, const kopa_roce_perftest_req *req);
[[nodiscard]] int kopa_get_roce_perftest_status(uint32_t logic_id,
                                                const kopa_roce_perftest_query *query,
                                                kopa_roce_perftest_status *status);
[[nodiscard]] int kopa_get_roce_perftest_report(uint32_t logic_id,
                                                const kopa_roce_perftest_query *query,
                                                kopa_roce_perftest_report *report);
[[nodiscard]] int kopa_stop_roce_perftest(uint32_t logic_id, const kopa_roce_perftest_query *query);
/// Answers up to 2000 bytes into `buf`.
[[nodiscard]] int kopa_reset_roce_perftest(uint32_t logic_id, void *buf);
/// One echo request from the device; the reply record says how it ended.
[[nodiscard]] int kopa_ping_fun(uint32_t logic_id, const kopa_ping_req *req,
                                kopa_ping_reply *reply);

// SerDes and clock-data-recovery diagnostics.
[[nodiscard]] int kopa_get_serdes_ctle_info(uint32_t logic_id, void *info); ///< 230 bytes
[[nodiscard]] int kopa_get_serdes_dfe_info(uint32_t logic_id, void *info);  ///< 160 bytes
[[nodiscard]] int kopa_get_serdes_ffe_info(uint32_t logic_id, void *info);  ///< 50 bytes
[[nodiscard]] int kopa_get_pcs_info(uint32_t logic_id, void *info);         ///< 904 bytes
/// Adaptation status of `lane` (144 bytes).
[[nodiscard]] int kopa_get_adapt_status_info(uint32_t logic_id, uint32_t lane, void *info);
/// Makes the device capture CDR registers or its extended CDR log.
[[nodiscard]] int kopa_trig_query_cdr_info(uint32_t logic_id, const kopa_cdr_trigger *trigger,
                                           kopa_cdr_trigger_reply *reply);
[[nodiscard]] int kopa_query_mac_lane_cdr_info(uint32_t logic_id, kopa_mac_lane_cdr_info *info);
/// Reads the registers of one lane that `req` names; the values come back in `out`.
[[nodiscard]] int kopa_get_cdr_reg_info(uint32_t logic_id, const kopa_cdr_reg_block *req,
                                        kopa_cdr_reg_block *out);

// ARP table and policy routing. The table reads take the capacity in records in `*count` and
// leave there the number of whole records the device answered.
[[nodiscard]] int kopa_add_arp_entry(uint32_t logic_id, const kopa_arp_record *entry);
[[nodiscard]] int kopa_del_arp_entry(uint32_t logic_id, const kopa_arp_record *entry);
[[nodiscard]] int kopa_get_arp_table(uint32_t logic_id, kopa_arp_record *entries, uint32_t *count);
[[nodiscard]] int kopa_add_ip_rule(uint32_t logic_id, const kopa_ip_rule_record *rule);
[[nodiscard]] int kopa_del_ip_rule(uint32_t logic_id, const kopa_ip_rule_record *rule);
[[nodiscard]] int kopa_get_ip_rules(uint32_t logic_id, kopa_ip_rule_record *rules, uint32_t *count);
[[nodiscard]] int kopa_add_ip_route(uint32_t logic_id, const kopa_ip_route_record *route);
[[nodiscard]] int kopa_del_ip_route(uint32_t logic_id, const kopa_ip_route_record *route);
[[nodiscard]] int kopa_get_ip_routes(uint32_t logic_id, kopa_ip_route_record *routes,
                                     uint32_t *count);
/// The static speed and the optical auto-adaptation switch.
[[nodiscard]] int kopa_get_generic_info(uint32_t logic_id, kopa_generic_info *info);

/// The caller's command for kopa_send_data.
struct kopa_send_request {
    uint32_t opcode;     ///< firmware operation code
    const void *inbuf;   ///< request payload, or null
    uint32_t size_in;    ///< payload length
    void *outbuf;        ///< reply buffer, or null
    uint32_t size_out;   ///< capacity of outbuf
    const char *cmdline; ///< the command line, for the debug trace; may be null
};

/// Generic pass-through of a caller-built command on port `port_id` (0..7, else -22).
[[nodiscard]] int kopa_send_data(uint32_t logic_id, uint32_t port_id, kopa_send_request *request);
