// Fuzzes the reply decoding of every device operation: the channel and the operation catalogue
// talk to a scripted firmware (tests/device/fake_firmware) whose every reply record the input
// shapes: fragment code, data length, result, reply length and return value, piece by piece.
//
// Input: one byte picks the operation, one the logical id (16 now and then), the next 8 bytes
// are the operation's own arguments (caller-given lengths, counts), then comes one control byte
// per reply record, each followed by the values it asks for. A control byte of zero, and the end of
// the input, give what a correct firmware answers: the whole record the request asks for, cut into
// pieces of 2000 bytes.
//
// Every buffer an operation fills is allocated to its exact size, so that a write or read past
// it is caught. Besides the sanitizers:
// - a fixed-size get that succeeds has had its whole record copied out of the replies;
// - a table read that succeeds answers no more records than the caller's room, and exactly the
//   records the replies carried;
// - a text read that succeeds has received at least its terminator.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "device/ops.hpp"
#include "fuzz/fuzz_support.hpp"
#include "tests/device/fake_firmware.hpp"

namespace
{

constexpr unsigned kMaxCalls = 64; // a firmware may dribble; the run need not follow it far

struct Script {
    FuzzBytes in{nullptr, 0};
    uint32_t left = 0;   ///< bytes of the natural reply still to hand out
    uint64_t copied = 0; ///< bytes of the answer pieces the channel takes (1..2000 each)
    unsigned calls = 0;
};

Script g_script;

int32_t pick_result(uint8_t mode)
{
    switch (mode) {
    case 0:
        return 0;
    case 1:
        return KOPA_RESULT_EPERM;
    case 2:
        return g_script.in.u8() % 2 == 0 ? KOPA_RESULT_ROUTE_FULL : KOPA_RESULT_NOENT;
    default:
        return static_cast<int32_t>(g_script.in.u32());
    }
}

int answer(const ds_req &req, ds_rsp &rsp, unsigned int &rsp_len)
{
    Script &s = g_script;
    if (++s.calls > kMaxCalls)
        return -22;
    const bool ack = req.direction == KOPA_DIR_SEND &&
                     (req.frag == KOPA_FRAG_FIRST || req.frag == KOPA_FRAG_MIDDLE);
    if (req.direction == KOPA_DIR_SEND && !ack)
        s.left = req.size_out; // the last (or only) packet of a command: its reply begins
    const uint8_t c = s.in.u8();

    const uint32_t natural_len = ack ? 0 : (s.left < KOPA_PKT_PAYLOAD ? s.left : KOPA_PKT_PAYLOAD);
    uint32_t frag = KOPA_FRAG_WHOLE;
    if (!ack && req.size_out > KOPA_PKT_PAYLOAD)
        frag = natural_len == s.left ? KOPA_FRAG_LAST : KOPA_FRAG_MIDDLE;
    uint32_t len = natural_len;
    switch (c & 3) {
    case 1:
        len = s.in.u16();
        break;
    case 2:
        len = natural_len + static_cast<uint32_t>(static_cast<int8_t>(s.in.u8()));
        break;
    case 3:
        len = s.in.u32();
        break;
    default:
        break;
    }
    switch ((c >> 2) & 3) {
    case 1:
    case 2:
        frag = s.in.u8() % 4;
        break;
    case 3:
        frag = s.in.u32();
        break;
    default:
        break;
    }
    rsp.result = pick_result((c >> 4) & 3);
    rsp.frag = frag;
    rsp.data_len = len;
    // The payload: bytes of the input first (texts, records), then a fill.
    const size_t room = len < KOPA_PKT_PAYLOAD ? len : KOPA_PKT_PAYLOAD;
    const std::string head = (c >> 6) == 3 ? s.in.word(64) : "";
    const size_t n = head.size() < room ? head.size() : room;
    memcpy(rsp.info, head.data(), n);
    memset(rsp.info + n, 'v', room - n);

    int ret = 0;
    if ((c >> 6) == 1)
        ret = s.in.u8() % 2 == 0 ? -22 : static_cast<int>(s.in.u32());
    else if ((c >> 6) == 2)
        rsp_len = s.in.u16();
    if (!ack && ret == 0 && rsp_len == KOPA_RSP_SIZE && rsp.result == 0 && len >= 1 &&
        len <= KOPA_PKT_PAYLOAD) {
        s.copied += len;
        s.left -= len < s.left ? len : s.left;
    }
    return ret;
}

/// The buffers of one call, each exactly as large as the operation is told it is.
class Buffers
{
  public:
    ~Buffers()
    {
        for (void *p : owned_)
            free(p);
    }
    void *bytes(size_t n)
    {
        void *p = malloc(n == 0 ? 1 : n);
        memset(p, 0xA5, n == 0 ? 1 : n);
        owned_.push_back(p);
        return p;
    }
    template <typename T> T *of(size_t count = 1)
    {
        return static_cast<T *>(bytes(sizeof(T) * count));
    }

  private:
    std::vector<void *> owned_;
};

struct Call {
    FuzzBytes &in;
    Buffers &buf;
    uint32_t id;
    /// A caller-given length: 1 to 6000 bytes, across the packet size.
    uint32_t len() { return 1 + in.u16() % 6000; }
};

/// What a successful call must have received, besides the sanitizers' rules.
enum class Rule { kNone, kFixed, kTable, kText };

struct Op {
    const char *name;
    std::function<int(Call &)> run;
    Rule rule = Rule::kNone;
    uint32_t record = 0; ///< kTable: size of one record
};

uint32_t g_room = 0;  ///< kTable: records the caller had room for
uint32_t g_count = 0; ///< kTable: records the read answered

// A table read with room for 0 to `max` records.
template <typename T, typename Get> int table(Call &c, uint32_t max, Get get)
{
    g_room = c.in.u8() % (max + 1);
    g_count = g_room;
    return get(c.id, c.buf.of<T>(g_room), &g_count);
}

// clang-format off
const std::vector<Op> &ops()
{
    static const std::vector<Op> list = {
        {"set_net_detect_ip_address", [](Call &c) { return kopa_set_net_detect_ip_address(c.id, c.in.u32()); }},
        {"get_net_detect_ip_address", [](Call &c) { return kopa_get_net_detect_ip_address(c.id, 0, c.buf.of<uint32_t>()); }},
        {"set_default_gateway_address", [](Call &c) { return kopa_set_default_gateway_address(c.id, 0, c.in.u32()); }},
        {"del_default_gateway_address", [](Call &c) { return kopa_del_default_gateway_address(c.id, 0, c.in.u32()); }},
        {"get_default_gateway_address", [](Call &c) { return kopa_get_default_gateway_address(c.id, c.buf.of<uint32_t>(), c.buf.of<uint32_t>()); }},
        {"lldp_get_neighbor_info", [](Call &c) { return kopa_lldp_get_neighbor_info(c.id); }, Rule::kText},
        {"get_mac_address", [](Call &c) { return kopa_get_mac_address(c.id, 0, c.buf.of<uint8_t>(6)); }},
        {"set_mac_address", [](Call &c) { return kopa_set_mac_address(c.id, 0, c.buf.of<uint8_t>(6)); }},
        {"set_netdev_link", [](Call &c) { return kopa_set_netdev_link(c.id, 0, c.in.u8()); }},
        {"get_netdev_link", [](Call &c) { return kopa_get_netdev_link(c.id, 0, c.buf.of<uint32_t>()); }},
        {"set_mtu", [](Call &c) { return kopa_set_mtu(c.id, 0, c.in.u32()); }},
        {"get_mtu", [](Call &c) { return kopa_get_mtu(c.id, 0); }},
        {"set_dscp_map", [](Call &c) { return kopa_set_dscp_map(c.id, c.buf.of<kopa_dscp_map_set>()); }},
        {"get_dscp_map", [](Call &c) { return kopa_get_dscp_map(c.id, c.buf.of<kopa_dscp_map>()); }},
        {"set_port_shaping", [](Call &c) { return kopa_set_port_shaping(c.id, c.buf.of<kopa_shaping_set>()); }},
        {"get_port_shaping", [](Call &c) { return kopa_get_port_shaping(c.id, c.buf.of<kopa_shaping_info>()); }},
        {"get_route_table", [](Call &c) { const uint32_t n = c.len(); return kopa_get_route_table(c.id, 0, c.buf.of<char>(n), n); }},
        {"add_route_table", [](Call &c) { return kopa_add_route_table(c.id, 0, c.buf.of<kopa_route_record>()); }},
        {"del_route_table", [](Call &c) { return kopa_del_route_table(c.id, 0, c.buf.of<kopa_route_record>()); }},
        {"get_pci_info", [](Call &c) { return kopa_get_pci_info(c.id, c.buf.of<kopa_pci_info>()); }},
        {"get_roce_context", [](Call &c) { return kopa_get_roce_context(c.id, c.buf.of<kopa_roce_context_query>(), c.buf.of<kopa_roce_qp_context>()); }},
        {"get_eth_reg_info", [](Call &c) { uint32_t n = c.in.u8() % 64; return kopa_get_eth_reg_info(c.id, c.buf.of<kopa_reg_record>(n), &n); }},
        {"get_network_register", [](Call &c) { return kopa_get_network_register(c.id, c.in.u8(), c.buf.of<uint32_t>()); }},
        {"get_optical_info", [](Call &c) { return kopa_get_optical_info(c.id, c.buf.of<kopa_optical_info>()); }},
        {"get_netdev_stat", [](Call &c) { return kopa_get_netdev_stat(c.id, c.buf.of<kopa_netdev_stat>()); }},
        {"get_tls_cfg", [](Call &c) { const uint32_t n = c.in.u8() % (KOPA_TLS_CERT_INFO_MAX + 2); return kopa_get_tls_cfg(c.id, 0, c.buf.of<kopa_tls_cert_info>(n), n); }},
        {"clear_netdev_stat", [](Call &c) { return kopa_clear_netdev_stat(c.id); }},
        {"set_tls_cfg", [](Call &c) { return kopa_set_tls_cfg(c.id, c.buf.of<uint8_t>(TLS_CFG_SIZE)); }},
        {"clear_tls_cfg", [](Call &c) { return kopa_clear_tls_cfg(c.id, 0); }},
        {"set_tls_enable", [](Call &c) { return kopa_set_tls_enable(c.id, c.in.u8()); }},
        {"set_tls_alarm", [](Call &c) { return kopa_set_tls_alarm(c.id, c.in.u8()); }},
        {"get_firmware_version", [](Call &c) { const uint32_t n = c.len(); return kopa_get_firmware_version(c.id, c.buf.of<char>(n), n); }},
        {"get_device_process", [](Call &c) { uint32_t n = c.in.u8() % 32; return kopa_get_device_process(c.id, c.buf.of<kopa_process_record>(n), &n); }},
        {"get_vnic_status", [](Call &c) { return kopa_get_vnic_status(c.id, 0, c.buf.of<uint32_t>()); }},
        {"get_tls_digital_envelope_pub_ky", [](Call &c) { return kopa_get_tls_digital_envelope_pub_ky(c.id, c.buf.of<kopa_envelope_pub_key>()); }},
        {"set_roce_port", [](Call &c) { return kopa_set_roce_port(c.id, 0, c.in.u16()); }},
        {"get_roce_port", [](Call &c) { return kopa_get_roce_port(c.id, 0); }},
        {"set_cfg_status", [](Call &c) { return kopa_set_cfg_status(c.id, c.in.u8() % 4); }},
        {"get_cfg_status", [](Call &c) { return kopa_get_cfg_status(c.id, c.buf.of<uint32_t>()); }},
        {"get_netdev_status", [](Call &c) { return kopa_get_netdev_status(c.id, c.buf.of<kopa_netdev_status>()); }},
        {"set_generic_info", [](Call &c) { const uint32_t n = c.len(); return kopa_set_generic_info(c.id, c.buf.bytes(n), n); }},
        {"get_link_his_stat", [](Call &c) { const uint32_t n = c.len(); return kopa_get_link_his_stat(c.id, c.buf.bytes(n), n); }},
        {"clear_link_his_stat", [](Call &c) { return kopa_clear_link_his_stat(c.id); }},
        {"get_roce_dfx_len", [](Call &c) { const uint32_t n = c.len(); return kopa_get_roce_dfx_len(c.id, c.buf.bytes(n), n); }},
        {"get_roce_dfx_data", [](Call &c) { const uint32_t n = c.len(); return kopa_get_roce_dfx_data(c.id, c.in.u8(), c.buf.bytes(n), n); }},
        {"get_roce_perftest_status", [](Call &c) { return kopa_get_roce_perftest_status(c.id, c.buf.of<kopa_roce_perftest_query>(), c.buf.of<kopa_roce_perftest_status>()); }},
        {"get_roce_perftest_report", [](Call &c) { return kopa_get_roce_perftest_report(c.id, c.buf.of<kopa_roce_perftest_query>(), c.buf.of<kopa_roce_perftest_report>()); }},
        {"start_roce_perftest", [](Call &c) { return kopa_start_roce_perftest(c.id, c.buf.of<kopa_roce_perftest_req>()); }},
        {"stop_roce_perftest", [](Call &c) { return kopa_stop_roce_perftest(c.id, c.buf.of<kopa_roce_perftest_query>()); }},
        {"reset_roce_perftest", [](Call &c) { return kopa_reset_roce_perftest(c.id, c.buf.bytes(2000)); }},
        {"get_eth_speed", [](Call &c) { return kopa_get_eth_speed(c.id, c.buf.of<uint32_t>()); }},
        {"get_eth_duplex", [](Call &c) { return kopa_get_eth_duplex(c.id, c.buf.of<uint32_t>()); }},
        {"get_ssu_reg", [](Call &c) { return kopa_get_ssu_reg(c.id, c.buf.of<kopa_backpressure_info>()); }},
        {"get_serdes_ctle_info", [](Call &c) { return kopa_get_serdes_ctle_info(c.id, c.buf.bytes(230)); }},
        {"get_serdes_dfe_info", [](Call &c) { return kopa_get_serdes_dfe_info(c.id, c.buf.bytes(160)); }},
        {"get_serdes_ffe_info", [](Call &c) { return kopa_get_serdes_ffe_info(c.id, c.buf.bytes(50)); }},
        {"get_fec_info", [](Call &c) { return kopa_get_fec_info(c.id, c.buf.of<uint32_t>()); }},
        {"set_fec_info", [](Call &c) { return kopa_set_fec_info(c.id, c.in.u8()); }},
        {"get_pcs_info", [](Call &c) { return kopa_get_pcs_info(c.id, c.buf.bytes(904)); }},
        {"get_adapt_status_info", [](Call &c) { return kopa_get_adapt_status_info(c.id, c.in.u8(), c.buf.bytes(144)); }},
        {"trig_query_cdr_info", [](Call &c) { return kopa_trig_query_cdr_info(c.id, c.buf.of<kopa_cdr_trigger>(), c.buf.of<kopa_cdr_trigger_reply>()); }},
        {"query_mac_lane_cdr_info", [](Call &c) { return kopa_query_mac_lane_cdr_info(c.id, c.buf.of<kopa_mac_lane_cdr_info>()); }},
        {"get_cdr_reg_info", [](Call &c) { return kopa_get_cdr_reg_info(c.id, c.buf.of<kopa_cdr_reg_block>(), c.buf.of<kopa_cdr_reg_block>()); }},
        {"get_pfc_enabled", [](Call &c) { return kopa_get_pfc_enabled(c.id, c.buf.of<kopa_pfc_info>()); }},
        {"set_pfc_enabled", [](Call &c) { const uint32_t n = c.len(); return kopa_set_pfc_enabled(c.id, c.buf.bytes(n), n); }},
        {"get_tc_cfg", [](Call &c) { return kopa_get_tc_cfg(c.id, c.buf.of<kopa_tc_cfg_info>()); }},
        {"set_tc_cfg", [](Call &c) { return kopa_set_tc_cfg(c.id, c.buf.of<kopa_tc_cfg_set>()); }},
        {"get_current_tc_used", [](Call &c) { return kopa_get_current_tc_used(c.id, c.in.u8(), c.buf.of<uint32_t>()); }},
        {"get_prio_tc_info", [](Call &c) { const uint32_t n = c.len(); return kopa_get_prio_tc_info(c.id, c.buf.bytes(n), n); }},
        {"set_prio_tc_info", [](Call &c) { const uint32_t n = c.len(); return kopa_set_prio_tc_info(c.id, c.buf.bytes(n), n); }},
        {"ping_fun", [](Call &c) { return kopa_ping_fun(c.id, c.buf.of<kopa_ping_req>(), c.buf.of<kopa_ping_reply>()); }},
        {"get_gratuitous_arp_info", [](Call &c) { return kopa_get_gratuitous_arp_info(c.id, 0, c.buf.of<kopa_garp_info>()); }},
        {"set_gratuitous_arp_info", [](Call &c) { const uint32_t n = c.len(); return kopa_set_gratuitous_arp_info(c.id, c.buf.bytes(n), n); }},
        {"set_optical_auto_adapt", [](Call &c) { const uint32_t n = c.len(); return kopa_set_optical_auto_adapt(c.id, c.buf.bytes(n), n); }},
        {"get_eth_test_info", [](Call &c) { return kopa_get_eth_test_info(c.id, c.in.u8(), c.buf.of<kopa_eth_test_info>()); }},
        {"add_arp_entry", [](Call &c) { return kopa_add_arp_entry(c.id, c.buf.of<kopa_arp_record>()); }},
        {"del_arp_entry", [](Call &c) { return kopa_del_arp_entry(c.id, c.buf.of<kopa_arp_record>()); }},
        {"get_arp_table", [](Call &c) { return table<kopa_arp_record>(c, KOPA_ARP_MAX, kopa_get_arp_table); }, Rule::kTable, sizeof(kopa_arp_record)},
        {"add_ip_rule", [](Call &c) { return kopa_add_ip_rule(c.id, c.buf.of<kopa_ip_rule_record>()); }},
        {"del_ip_rule", [](Call &c) { return kopa_del_ip_rule(c.id, c.buf.of<kopa_ip_rule_record>()); }},
        {"get_ip_rules", [](Call &c) { return table<kopa_ip_rule_record>(c, KOPA_POLICY_MAX, kopa_get_ip_rules); }, Rule::kTable, sizeof(kopa_ip_rule_record)},
        {"add_ip_route", [](Call &c) { return kopa_add_ip_route(c.id, c.buf.of<kopa_ip_route_record>()); }},
        {"del_ip_route", [](Call &c) { return kopa_del_ip_route(c.id, c.buf.of<kopa_ip_route_record>()); }},
        {"get_ip_routes", [](Call &c) { return table<kopa_ip_route_record>(c, KOPA_POLICY_MAX, kopa_get_ip_routes); }, Rule::kTable, sizeof(kopa_ip_route_record)},
        {"get_generic_info", [](Call &c) { return kopa_get_generic_info(c.id, c.buf.of<kopa_generic_info>()); }},
        // Not rows of the catalogue: the silent reads and the generic pass-through.
        {"read_mtu", [](Call &c) { return kopa_read_mtu(c.id, 0, c.buf.of<uint32_t>()); }},
        {"read_roce_port", [](Call &c) { return kopa_read_roce_port(c.id, 0, c.buf.of<uint32_t>()); }},
        {"send_data", [](Call &c) {
            const uint32_t opcode = c.in.u16(), n = c.in.u8() % 2 == 0 ? 0 : c.len(), m = c.len();
            kopa_send_request req{opcode, n == 0 ? nullptr : c.buf.bytes(n), n, c.buf.bytes(m), m, "fuzz"};
            return kopa_send_data(c.id, c.in.u8() % 9, &req); }},
    };
    return list;
}
// clang-format on

/// The size every successful reply of the operation must fill; 0 when the device chooses.
std::map<std::string, uint32_t> fixed_sizes()
{
    std::map<std::string, uint32_t> sizes;
#define ROW(row, opcode, in, out)                                                                  \
    if ((out) != 0 && (out) != KOPA_SIZE_CALLER)                                                   \
        sizes[#row] = (out);
    KOPA_OPERATIONS(ROW)
#undef ROW
    // Texts of the device's length, whatever the room.
    sizes.erase("lldp_get_neighbor_info");
    sizes.erase("reset_roce_perftest");
    // Reads of a record that print or keep a field of it.
    sizes["read_mtu"] = sizes["get_mtu"];
    sizes["read_roce_port"] = sizes["get_roce_port"];
    return sizes;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    fuzz_quiet(argc, argv);
    (void)fuzz_dir();
    // Every row of the catalogue is called.
#define ROW(row, opcode, in, out)                                                                  \
    {                                                                                              \
        bool found = false;                                                                        \
        for (const Op &op : ops())                                                                 \
            found = found || strcmp(op.name, #row) == 0;                                           \
        if (!found)                                                                                \
            fuzz_fault("reply_fuzz", #row, "no call in the fuzzer");                               \
    }
    KOPA_OPERATIONS(ROW)
#undef ROW
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const std::map<std::string, uint32_t> fixed = fixed_sizes();
    FuzzBytes in(data, size);
    const Op &op = ops()[in.u8() % ops().size()];
    const uint8_t id = in.u8();
    const uint32_t logic_id = id < 0xF0 ? id % KOPA_MAX_DEVICES : KOPA_MAX_DEVICES;

    FakeFirmware &fw = fake_firmware();
    fw.reset();
    fw.answer = answer;
    // The operation's arguments take the next 8 bytes, the reply script the rest.
    const size_t arg_bytes = in.size() < 8 ? in.size() : 8;
    FuzzBytes arg_in(in.data(), arg_bytes);
    g_script = Script{};
    g_script.in = FuzzBytes(in.data() + arg_bytes, in.size() - arg_bytes);
    Buffers buf;
    Call c{arg_in, buf, logic_id};
    const int ret = op.run(c);
    (void)fflush(stdout);
    if (ret != 0)
        return 0;

    const std::string name = op.name;
    if (auto it = fixed.find(name); it != fixed.end() && g_script.copied != it->second)
        fuzz_fault("reply_fuzz", name,
                   "accepted a reply of " + std::to_string(g_script.copied) + " bytes for a " +
                       std::to_string(it->second) + "-byte record");
    if (op.rule == Rule::kTable &&
        (g_count > g_room || uint64_t{g_count} * op.record != g_script.copied))
        fuzz_fault("reply_fuzz", name,
                   "answered " + std::to_string(g_count) + " records with room for " +
                       std::to_string(g_room) + " and " + std::to_string(g_script.copied) +
                       " bytes received");
    if (op.rule == Rule::kText && (g_script.copied == 0 || g_script.copied > 2000))
        fuzz_fault("reply_fuzz", name,
                   "took a text of " + std::to_string(g_script.copied) + " bytes");
    return 0;
}
