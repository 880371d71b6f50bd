// The calls of every device operation for the reply fuzzer.
#include "fuzz/reply_ops.hpp"

#include <cstdlib>
#include <cstring>

#include "device/ops.hpp"

FuzzBuffers::~FuzzBuffers()
{
    for (void *p : owned_)
        free(p);
}

void *FuzzBuffers::bytes(size_t n)
{
    void *p = malloc(n == 0 ? 1 : n);
    memset(p, 0xA5, n == 0 ? 1 : n);
    owned_.push_back(p);
    return p;
}

uint32_t catalogue_out(std::string_view name)
{
#define ROW(row, opcode, in, out)                                                                  \
    if (name == #row)                                                                              \
        return (out);
    KOPA_OPERATIONS(ROW)
#undef ROW
    return 0;
}

namespace
{

using Call = ReplyCall;

// A table read with room for 0 to `max` records.
template <typename T, typename Get> int table(Call &c, uint32_t max, Get get)
{
    c.room = c.in.u8() % (max + 1);
    c.count = c.room;
    return get(c.id, c.buf.of<T>(c.room), &c.count);
}

} // namespace

// clang-format off
const std::vector<ReplyOp> &reply_ops()
{
    using enum Reply;
    static const std::vector<ReplyOp> list = {
        {"set_net_detect_ip_address", [](Call &c) { return kopa_set_net_detect_ip_address(c.id, c.in.u32()); }},
        {"get_net_detect_ip_address", [](Call &c) { return kopa_get_net_detect_ip_address(c.id, 0, c.buf.of<uint32_t>()); }, kRecord},
        {"set_default_gateway_address", [](Call &c) { return kopa_set_default_gateway_address(c.id, 0, c.in.u32()); }},
        {"del_default_gateway_address", [](Call &c) { return kopa_del_default_gateway_address(c.id, 0, c.in.u32()); }},
        {"get_default_gateway_address", [](Call &c) { return kopa_get_default_gateway_address(c.id, c.buf.of<uint32_t>(), c.buf.of<uint32_t>()); }, kRecord},
        {"lldp_get_neighbor_info", [](Call &c) { return kopa_lldp_get_neighbor_info(c.id); }, kText},
        {"get_mac_address", [](Call &c) { return kopa_get_mac_address(c.id, 0, c.buf.of<uint8_t>(6)); }, kRecord},
        {"set_mac_address", [](Call &c) { return kopa_set_mac_address(c.id, 0, c.buf.of<uint8_t>(6)); }},
        {"set_netdev_link", [](Call &c) { return kopa_set_netdev_link(c.id, 0, c.in.u8()); }},
        {"get_netdev_link", [](Call &c) { return kopa_get_netdev_link(c.id, 0, c.buf.of<uint32_t>()); }, kRecord},
        {"set_mtu", [](Call &c) { return kopa_set_mtu(c.id, 0, c.in.u32()); }},
        {"get_mtu", [](Call &c) { return kopa_get_mtu(c.id, 0); }, kRecord},
        {"set_dscp_map", [](Call &c) { return kopa_set_dscp_map(c.id, c.buf.of<kopa_dscp_map_set>()); }},
        {"get_dscp_map", [](Call &c) { return kopa_get_dscp_map(c.id, c.buf.of<kopa_dscp_map>()); }, kRecord},
        {"set_port_shaping", [](Call &c) { return kopa_set_port_shaping(c.id, c.buf.of<kopa_shaping_set>()); }},
        {"get_port_shaping", [](Call &c) { return kopa_get_port_shaping(c.id, c.buf.of<kopa_shaping_info>()); }, kRecord},
        {"get_route_table", [](Call &c) { const uint32_t n = c.len(); return kopa_get_route_table(c.id, 0, c.buf.of<char>(n), n); }, kBlock},
        {"add_route_table", [](Call &c) { c.room = sizeof(uint32_t); return kopa_add_route_table(c.id, 0, c.buf.of<kopa_route_record>()); }, kBlock},
        {"del_route_table", [](Call &c) { c.room = sizeof(uint32_t); return kopa_del_route_table(c.id, 0, c.buf.of<kopa_route_record>()); }, kBlock},
        {"get_pci_info", [](Call &c) { return kopa_get_pci_info(c.id, c.buf.of<kopa_pci_info>()); }, kRecord, sizeof(kopa_pci_info)},
        {"get_roce_context", [](Call &c) { return kopa_get_roce_context(c.id, c.buf.of<kopa_roce_context_query>(), c.buf.of<kopa_roce_qp_context>()); }, kRecord, sizeof(kopa_roce_qp_context)},
        {"get_eth_reg_info", [](Call &c) { return table<kopa_reg_record>(c, KOPA_PKT_PAYLOAD / sizeof(kopa_reg_record), kopa_get_eth_reg_info); }, kTable, sizeof(kopa_reg_record)},
        {"get_network_register", [](Call &c) { return kopa_get_network_register(c.id, c.in.u8(), c.buf.of<uint32_t>()); }, kRecord, sizeof(uint32_t)},
        {"get_optical_info", [](Call &c) { return kopa_get_optical_info(c.id, c.buf.of<kopa_optical_info>()); }, kRecord},
        {"get_netdev_stat", [](Call &c) { return kopa_get_netdev_stat(c.id, c.buf.of<kopa_netdev_stat>()); }, kRecord},
        {"get_tls_cfg", [](Call &c) { const uint32_t n = c.in.u8() % (KOPA_TLS_CERT_INFO_MAX + 2); c.room = n * sizeof(kopa_tls_cert_info); return kopa_get_tls_cfg(c.id, 0, c.buf.of<kopa_tls_cert_info>(n), n); }, kBlock},
        {"clear_netdev_stat", [](Call &c) { return kopa_clear_netdev_stat(c.id); }},
        {"set_tls_cfg", [](Call &c) { return kopa_set_tls_cfg(c.id, c.buf.of<uint8_t>(TLS_CFG_SIZE)); }},
        {"clear_tls_cfg", [](Call &c) { return kopa_clear_tls_cfg(c.id, 0); }},
        {"set_tls_enable", [](Call &c) { return kopa_set_tls_enable(c.id, c.in.u8()); }},
        {"set_tls_alarm", [](Call &c) { return kopa_set_tls_alarm(c.id, c.in.u8()); }},
        {"get_firmware_version", [](Call &c) { const uint32_t n = c.len(); return kopa_get_firmware_version(c.id, c.buf.of<char>(n), n); }, kBlock},
        {"get_device_process", [](Call &c) { return table<kopa_process_record>(c, KOPA_PROCESS_MAX, kopa_get_device_process); }, kTable, sizeof(kopa_process_record)},
        {"get_vnic_status", [](Call &c) { return kopa_get_vnic_status(c.id, 0, c.buf.of<uint32_t>()); }, kRecord},
        {"get_tls_digital_envelope_pub_ky", [](Call &c) { return kopa_get_tls_digital_envelope_pub_ky(c.id, c.buf.of<kopa_envelope_pub_key>()); }, kRecord},
        {"set_roce_port", [](Call &c) { return kopa_set_roce_port(c.id, 0, c.in.u16()); }},
        {"get_roce_port", [](Call &c) { return kopa_get_roce_port(c.id, 0); }, kRecord},
        {"set_cfg_status", [](Call &c) { return kopa_set_cfg_status(c.id, c.in.u8() % 4); }},
        {"get_cfg_status", [](Call &c) { return kopa_get_cfg_status(c.id, c.buf.of<uint32_t>()); }, kRecord},
        {"get_netdev_status", [](Call &c) { return kopa_get_netdev_status(c.id, c.buf.of<kopa_netdev_status>()); }, kRecord, sizeof(kopa_netdev_status)},
        {"set_generic_info", [](Call &c) { const uint32_t n = c.len(); return kopa_set_generic_info(c.id, c.buf.bytes(n), n); }},
        {"get_link_his_stat", [](Call &c) { const uint32_t n = c.len(); return kopa_get_link_his_stat(c.id, c.buf.bytes(n), n); }, kBlock},
        {"clear_link_his_stat", [](Call &c) { return kopa_clear_link_his_stat(c.id); }},
        {"get_roce_dfx_len", [](Call &c) { const uint32_t n = c.len(); return kopa_get_roce_dfx_len(c.id, c.buf.bytes(n), n); }, kBlock},
        {"get_roce_dfx_data", [](Call &c) { const uint32_t n = c.len(); return kopa_get_roce_dfx_data(c.id, c.in.u8(), c.buf.bytes(n), n); }, kBlock},
        {"get_roce_perftest_status", [](Call &c) { return kopa_get_roce_perftest_status(c.id, c.buf.of<kopa_roce_perftest_query>(), c.buf.of<kopa_roce_perftest_status>()); }, kRecord},
        {"get_roce_perftest_report", [](Call &c) { return kopa_get_roce_perftest_report(c.id, c.buf.of<kopa_roce_perftest_query>(), c.buf.of<kopa_roce_perftest_report>()); }, kRecord, sizeof(kopa_roce_perftest_report)},
        {"start_roce_perftest", [](Call &c) { return kopa_start_roce_perftest(c.id, c.buf.of<kopa_roce_perftest_req>()); }},
        {"stop_roce_perftest", [](Call &c) { return kopa_stop_roce_perftest(c.id, c.buf.of<kopa_roce_perftest_query>()); }},
        {"reset_roce_perftest", [](Call &c) { c.room = catalogue_out("reset_roce_perftest"); return kopa_reset_roce_perftest(c.id, c.buf.bytes(c.room)); }, kBlock},
        {"get_eth_speed", [](Call &c) { return kopa_get_eth_speed(c.id, c.buf.of<uint32_t>()); }, kRecord},
        {"get_eth_duplex", [](Call &c) { return kopa_get_eth_duplex(c.id, c.buf.of<uint32_t>()); }, kRecord},
        {"get_ssu_reg", [](Call &c) { return kopa_get_ssu_reg(c.id, c.buf.of<kopa_backpressure_info>()); }, kRecord, sizeof(kopa_backpressure_info)},
        {"get_serdes_ctle_info", [](Call &c) { return kopa_get_serdes_ctle_info(c.id, c.buf.bytes(230)); }, kRecord},
        {"get_serdes_dfe_info", [](Call &c) { return kopa_get_serdes_dfe_info(c.id, c.buf.bytes(160)); }, kRecord},
        {"get_serdes_ffe_info", [](Call &c) { return kopa_get_serdes_ffe_info(c.id, c.buf.bytes(50)); }, kRecord},
        {"get_fec_info", [](Call &c) { return kopa_get_fec_info(c.id, c.buf.of<uint32_t>()); }, kRecord},
        {"set_fec_info", [](Call &c) { return kopa_set_fec_info(c.id, c.in.u8()); }},
        {"get_pcs_info", [](Call &c) { return kopa_get_pcs_info(c.id, c.buf.bytes(904)); }, kRecord},
        {"get_adapt_status_info", [](Call &c) { return kopa_get_adapt_status_info(c.id, c.in.u8(), c.buf.bytes(144)); }, kRecord},
        {"trig_query_cdr_info", [](Call &c) { return kopa_trig_query_cdr_info(c.id, c.buf.of<kopa_cdr_trigger>(), c.buf.of<kopa_cdr_trigger_reply>()); }, kRecord},
        {"query_mac_lane_cdr_info", [](Call &c) { return kopa_query_mac_lane_cdr_info(c.id, c.buf.of<kopa_mac_lane_cdr_info>()); }, kRecord},
        {"get_cdr_reg_info", [](Call &c) { return kopa_get_cdr_reg_info(c.id, c.buf.of<kopa_cdr_reg_block>(), c.buf.of<kopa_cdr_reg_block>()); }, kRecord},
        {"get_pfc_enabled", [](Call &c) { return kopa_get_pfc_enabled(c.id, c.buf.of<kopa_pfc_info>()); }, kRecord},
        {"set_pfc_enabled", [](Call &c) { const uint32_t n = c.len(); return kopa_set_pfc_enabled(c.id, c.buf.bytes(n), n); }},
        {"get_tc_cfg", [](Call &c) { return kopa_get_tc_cfg(c.id, c.buf.of<kopa_tc_cfg_info>()); }, kRecord},
        {"set_tc_cfg", [](Call &c) { return kopa_set_tc_cfg(c.id, c.buf.of<kopa_tc_cfg_set>()); }},
        {"get_current_tc_used", [](Call &c) { return kopa_get_current_tc_used(c.id, c.in.u8(), c.buf.of<uint32_t>()); }, kRecord},
        {"get_prio_tc_info", [](Call &c) { const uint32_t n = c.len(); return kopa_get_prio_tc_info(c.id, c.buf.bytes(n), n); }, kBlock},
        {"set_prio_tc_info", [](Call &c) { const uint32_t n = c.len(); return kopa_set_prio_tc_info(c.id, c.buf.bytes(n), n); }},
        {"ping_fun", [](Call &c) { return kopa_ping_fun(c.id, c.buf.of<kopa_ping_req>(), c.buf.of<kopa_ping_reply>()); }, kRecord, sizeof(kopa_ping_reply)},
        {"get_gratuitous_arp_info", [](Call &c) { return kopa_get_gratuitous_arp_info(c.id, 0, c.buf.of<kopa_garp_info>()); }, kRecord},
        {"set_gratuitous_arp_info", [](Call &c) { const uint32_t n = c.len(); return kopa_set_gratuitous_arp_info(c.id, c.buf.bytes(n), n); }},
        {"set_optical_auto_adapt", [](Call &c) { const uint32_t n = c.len(); return kopa_set_optical_auto_adapt(c.id, c.buf.bytes(n), n); }},
        {"get_eth_test_info", [](Call &c) { return kopa_get_eth_test_info(c.id, c.in.u8(), c.buf.of<kopa_eth_test_info>()); }, kRecord, sizeof(kopa_eth_test_info)},
        {"add_arp_entry", [](Call &c) { return kopa_add_arp_entry(c.id, c.buf.of<kopa_arp_record>()); }},
        {"del_arp_entry", [](Call &c) { return kopa_del_arp_entry(c.id, c.buf.of<kopa_arp_record>()); }},
        {"get_arp_table", [](Call &c) { return table<kopa_arp_record>(c, KOPA_ARP_MAX, kopa_get_arp_table); }, kTable, sizeof(kopa_arp_record)},
        {"add_ip_rule", [](Call &c) { return kopa_add_ip_rule(c.id, c.buf.of<kopa_ip_rule_record>()); }},
        {"del_ip_rule", [](Call &c) { return kopa_del_ip_rule(c.id, c.buf.of<kopa_ip_rule_record>()); }},
        {"get_ip_rules", [](Call &c) { return table<kopa_ip_rule_record>(c, KOPA_POLICY_MAX, kopa_get_ip_rules); }, kTable, sizeof(kopa_ip_rule_record)},
        {"add_ip_route", [](Call &c) { return kopa_add_ip_route(c.id, c.buf.of<kopa_ip_route_record>()); }},
        {"del_ip_route", [](Call &c) { return kopa_del_ip_route(c.id, c.buf.of<kopa_ip_route_record>()); }},
        {"get_ip_routes", [](Call &c) { return table<kopa_ip_route_record>(c, KOPA_POLICY_MAX, kopa_get_ip_routes); }, kTable, sizeof(kopa_ip_route_record)},
        {"get_generic_info", [](Call &c) { return kopa_get_generic_info(c.id, c.buf.of<kopa_generic_info>()); }, kRecord},
        // Not rows of the catalogue: the silent reads and the generic pass-through.
        {"read_mtu", [](Call &c) { return kopa_read_mtu(c.id, 0, c.buf.of<uint32_t>()); }, kRecord, catalogue_out("get_mtu")},
        {"read_roce_port", [](Call &c) { return kopa_read_roce_port(c.id, 0, c.buf.of<uint32_t>()); }, kRecord, catalogue_out("get_roce_port")},
        {"send_data", [](Call &c) {
            const uint32_t opcode = c.in.u16(), n = c.in.u8() % 2 == 0 ? 0 : c.len(), m = c.len();
            kopa_send_request req{opcode, n == 0 ? nullptr : c.buf.bytes(n), n, c.buf.bytes(m), m, "fuzz"};
            return kopa_send_data(c.id, c.in.u8() % 9, &req); }},
    };
    return list;
}
// clang-format on
