// The operation catalogue: opcode and sizes of every operation, argument rejection, the
// length rules of replies, and the answers the port reads print.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "device/ops.hpp"
#include "fuzz/reply_ops.hpp"
#include "tests/device/fake_firmware.hpp"

namespace
{

struct Wire {
    uint32_t opcode, size_in, size_out;
};

// What each operation must put on the wire, straight from the platform's catalogue.
const std::map<std::string, Wire> &catalogue()
{
    static const std::map<std::string, Wire> table = {
#define ROW(name, opcode, in, out) {#name, {opcode, in, out}},
        KOPA_OPERATIONS(ROW)
#undef ROW
    };
    return table;
}

constexpr uint32_t kLen = 64; // every caller-given length in the table below
alignas(8) uint8_t g_buf[TLS_CFG_SIZE];

template <typename T> T *as()
{
    return reinterpret_cast<T *>(g_buf);
}
void *b()
{
    return g_buf;
}
// The capacity, in records of T, of the caller-given length kLen.
template <typename T> uint32_t *count()
{
    static uint32_t n;
    n = kLen / sizeof(T);
    return &n;
}

struct Call {
    const char *name;
    std::function<int(uint32_t)> run;
    uint32_t caller_out = kLen; // expected size_out where the catalogue says caller-given
    uint32_t caller_in = kLen;  // expected size_in where the catalogue says caller-given
};

// clang-format off
const Call kCalls[] = {
    {"set_net_detect_ip_address", [](uint32_t i) { return kopa_set_net_detect_ip_address(i, 1); }},
    {"get_net_detect_ip_address", [](uint32_t i) { return kopa_get_net_detect_ip_address(i, 0, as<uint32_t>()); }},
    {"set_default_gateway_address", [](uint32_t i) { return kopa_set_default_gateway_address(i, 0, 1); }},
    {"del_default_gateway_address", [](uint32_t i) { return kopa_del_default_gateway_address(i, 0, 1); }},
    {"get_default_gateway_address", [](uint32_t i) { uint32_t p; return kopa_get_default_gateway_address(i, as<uint32_t>(), &p); }},
    {"lldp_get_neighbor_info", [](uint32_t i) { return kopa_lldp_get_neighbor_info(i); }},
    {"get_mac_address", [](uint32_t i) { return kopa_get_mac_address(i, 0, g_buf); }},
    {"set_mac_address", [](uint32_t i) { return kopa_set_mac_address(i, 0, g_buf); }},
    {"set_netdev_link", [](uint32_t i) { return kopa_set_netdev_link(i, 0, 1); }},
    {"get_netdev_link", [](uint32_t i) { return kopa_get_netdev_link(i, 0, as<uint32_t>()); }},
    {"set_mtu", [](uint32_t i) { return kopa_set_mtu(i, 0, 1500); }},
    {"get_mtu", [](uint32_t i) { return kopa_get_mtu(i, 0); }},
    {"set_dscp_map", [](uint32_t i) { return kopa_set_dscp_map(i, as<kopa_dscp_map_set>()); }},
    {"get_dscp_map", [](uint32_t i) { return kopa_get_dscp_map(i, as<kopa_dscp_map>()); }},
    {"set_port_shaping", [](uint32_t i) { return kopa_set_port_shaping(i, as<kopa_shaping_set>()); }},
    {"get_port_shaping", [](uint32_t i) { return kopa_get_port_shaping(i, as<kopa_shaping_info>()); }},
    {"get_route_table", [](uint32_t i) { return kopa_get_route_table(i, 0, as<char>(), kLen); }},
    {"add_route_table", [](uint32_t i) { return kopa_add_route_table(i, 0, as<kopa_route_record>()); }, 4},
    {"del_route_table", [](uint32_t i) { return kopa_del_route_table(i, 0, as<kopa_route_record>()); }, 4},
    {"get_pci_info", [](uint32_t i) { return kopa_get_pci_info(i, as<kopa_pci_info>()); }, 32},
    {"get_roce_context", [](uint32_t i) { return kopa_get_roce_context(i, as<kopa_roce_context_query>(), as<kopa_roce_qp_context>()); }, 64},
    {"get_eth_reg_info", [](uint32_t i) { return kopa_get_eth_reg_info(i, as<kopa_reg_record>(), count<kopa_reg_record>()); }},
    {"get_network_register", [](uint32_t i) { return kopa_get_network_register(i, 4, as<uint32_t>()); }, 4},
    {"get_optical_info", [](uint32_t i) { return kopa_get_optical_info(i, as<kopa_optical_info>()); }},
    {"get_netdev_stat", [](uint32_t i) { return kopa_get_netdev_stat(i, as<kopa_netdev_stat>()); }},
    {"get_tls_cfg", [](uint32_t i) { return kopa_get_tls_cfg(i, 0, as<kopa_tls_cert_info>(), 2); }, 248},
    {"clear_netdev_stat", [](uint32_t i) { return kopa_clear_netdev_stat(i); }},
    {"set_tls_cfg", [](uint32_t i) { return kopa_set_tls_cfg(i, g_buf); }},
    {"clear_tls_cfg", [](uint32_t i) { return kopa_clear_tls_cfg(i, 0); }},
    {"set_tls_enable", [](uint32_t i) { return kopa_set_tls_enable(i, 1); }},
    {"set_tls_alarm", [](uint32_t i) { return kopa_set_tls_alarm(i, 30); }},
    {"get_firmware_version", [](uint32_t i) { return kopa_get_firmware_version(i, as<char>(), kLen); }},
    {"get_device_process", [](uint32_t i) { return kopa_get_device_process(i, as<kopa_process_record>(), count<kopa_process_record>()); }, 40},
    {"get_vnic_status", [](uint32_t i) { return kopa_get_vnic_status(i, 0, as<uint32_t>()); }},
    {"get_tls_digital_envelope_pub_ky", [](uint32_t i) { return kopa_get_tls_digital_envelope_pub_ky(i, as<kopa_envelope_pub_key>()); }},
    {"set_roce_port", [](uint32_t i) { return kopa_set_roce_port(i, 0, 4791); }},
    {"get_roce_port", [](uint32_t i) { return kopa_get_roce_port(i, 0); }},
    {"set_cfg_status", [](uint32_t i) { return kopa_set_cfg_status(i, 1); }},
    {"get_cfg_status", [](uint32_t i) { return kopa_get_cfg_status(i, as<uint32_t>()); }},
    {"get_netdev_status", [](uint32_t i) { return kopa_get_netdev_status(i, as<kopa_netdev_status>()); }, 40},
    {"set_generic_info", [](uint32_t i) { return kopa_set_generic_info(i, b(), kLen); }},
    {"get_link_his_stat", [](uint32_t i) { return kopa_get_link_his_stat(i, b(), kLen); }},
    {"clear_link_his_stat", [](uint32_t i) { return kopa_clear_link_his_stat(i); }},
    {"get_roce_dfx_len", [](uint32_t i) { return kopa_get_roce_dfx_len(i, b(), kLen); }},
    {"get_roce_dfx_data", [](uint32_t i) { return kopa_get_roce_dfx_data(i, 0, b(), kLen); }},
    {"start_roce_perftest", [](uint32_t i) { return kopa_start_roce_perftest(i, as<kopa_roce_perftest_req>()); }, kLen, 16},
    {"get_roce_perftest_status", [](uint32_t i) { return kopa_get_roce_perftest_status(i, as<kopa_roce_perftest_query>(), as<kopa_roce_perftest_status>()); }, kLen, 4},
    {"get_roce_perftest_report", [](uint32_t i) { return kopa_get_roce_perftest_report(i, as<kopa_roce_perftest_query>(), as<kopa_roce_perftest_report>()); }, 40, 4},
    {"stop_roce_perftest", [](uint32_t i) { return kopa_stop_roce_perftest(i, as<kopa_roce_perftest_query>()); }, kLen, 4},
    {"reset_roce_perftest", [](uint32_t i) { return kopa_reset_roce_perftest(i, b()); }},
    {"get_eth_speed", [](uint32_t i) { return kopa_get_eth_speed(i, as<uint32_t>()); }},
    {"get_eth_duplex", [](uint32_t i) { return kopa_get_eth_duplex(i, as<uint32_t>()); }},
    {"get_ssu_reg", [](uint32_t i) { return kopa_get_ssu_reg(i, as<kopa_backpressure_info>()); }, 72},
    {"get_serdes_ctle_info", [](uint32_t i) { return kopa_get_serdes_ctle_info(i, b()); }},
    {"get_serdes_dfe_info", [](uint32_t i) { return kopa_get_serdes_dfe_info(i, b()); }},
    {"get_serdes_ffe_info", [](uint32_t i) { return kopa_get_serdes_ffe_info(i, b()); }},
    {"get_fec_info", [](uint32_t i) { return kopa_get_fec_info(i, as<uint32_t>()); }},
    {"set_fec_info", [](uint32_t i) { return kopa_set_fec_info(i, 1); }},
    {"get_pcs_info", [](uint32_t i) { return kopa_get_pcs_info(i, b()); }},
    {"get_adapt_status_info", [](uint32_t i) { return kopa_get_adapt_status_info(i, 0, b()); }},
    {"trig_query_cdr_info", [](uint32_t i) { return kopa_trig_query_cdr_info(i, as<kopa_cdr_trigger>(), as<kopa_cdr_trigger_reply>()); }, kLen, 8},
    {"query_mac_lane_cdr_info", [](uint32_t i) { return kopa_query_mac_lane_cdr_info(i, as<kopa_mac_lane_cdr_info>()); }},
    {"get_cdr_reg_info", [](uint32_t i) { return kopa_get_cdr_reg_info(i, as<kopa_cdr_reg_block>(), as<kopa_cdr_reg_block>()); }},
    {"get_pfc_enabled", [](uint32_t i) { return kopa_get_pfc_enabled(i, as<kopa_pfc_info>()); }},
    {"set_pfc_enabled", [](uint32_t i) { return kopa_set_pfc_enabled(i, b(), kLen); }},
    {"get_tc_cfg", [](uint32_t i) { return kopa_get_tc_cfg(i, as<kopa_tc_cfg_info>()); }},
    {"set_tc_cfg", [](uint32_t i) { return kopa_set_tc_cfg(i, as<kopa_tc_cfg_set>()); }},
    {"get_current_tc_used", [](uint32_t i) { return kopa_get_current_tc_used(i, 0, as<uint32_t>()); }},
    {"get_prio_tc_info", [](uint32_t i) { return kopa_get_prio_tc_info(i, b(), kLen); }},
    {"set_prio_tc_info", [](uint32_t i) { return kopa_set_prio_tc_info(i, b(), kLen); }},
    {"ping_fun", [](uint32_t i) { return kopa_ping_fun(i, as<kopa_ping_req>(), as<kopa_ping_reply>()); }, 16, 16},
    {"get_gratuitous_arp_info", [](uint32_t i) { return kopa_get_gratuitous_arp_info(i, 0, as<kopa_garp_info>()); }},
    {"set_gratuitous_arp_info", [](uint32_t i) { return kopa_set_gratuitous_arp_info(i, b(), kLen); }},
    {"set_optical_auto_adapt", [](uint32_t i) { return kopa_set_optical_auto_adapt(i, b(), kLen); }},
    {"get_eth_test_info", [](uint32_t i) { return kopa_get_eth_test_info(i, 1, as<kopa_eth_test_info>()); }, 28},
    {"add_arp_entry", [](uint32_t i) { return kopa_add_arp_entry(i, as<kopa_arp_record>()); }},
    {"del_arp_entry", [](uint32_t i) { return kopa_del_arp_entry(i, as<kopa_arp_record>()); }},
    {"get_arp_table", [](uint32_t i) { return kopa_get_arp_table(i, as<kopa_arp_record>(), count<kopa_arp_record>()); }},
    {"add_ip_rule", [](uint32_t i) { return kopa_add_ip_rule(i, as<kopa_ip_rule_record>()); }},
    {"del_ip_rule", [](uint32_t i) { return kopa_del_ip_rule(i, as<kopa_ip_rule_record>()); }},
    {"get_ip_rules", [](uint32_t i) { return kopa_get_ip_rules(i, as<kopa_ip_rule_record>(), count<kopa_ip_rule_record>()); }},
    {"add_ip_route", [](uint32_t i) { return kopa_add_ip_route(i, as<kopa_ip_route_record>()); }},
    {"del_ip_route", [](uint32_t i) { return kopa_del_ip_route(i, as<kopa_ip_route_record>()); }},
    {"get_ip_routes", [](uint32_t i) { return kopa_get_ip_routes(i, as<kopa_ip_route_record>(), count<kopa_ip_route_record>()); }, 60},
    {"get_generic_info", [](uint32_t i) { return kopa_get_generic_info(i, as<kopa_generic_info>()); }},
};
// clang-format on

const Call &call_of(const std::string &name)
{
    for (const Call &call : kCalls)
        if (name == call.name)
            return call;
    ADD_FAILURE() << "no call for " << name;
    return kCalls[0];
}

// The catalogue rows whose reply is a record of the given size, or of the device's length, as
// the reply fuzzer's rows tell them apart.
std::vector<std::pair<std::string, uint32_t>> gets(bool fixed)
{
    std::vector<std::pair<std::string, uint32_t>> out;
    for (const ReplyOp &op : reply_ops()) {
        const uint32_t size = catalogue_out(op.name);
        if (size == 0 || op.reply == Reply::kNone || (op.reply == Reply::kRecord) != fixed)
            continue;
        out.emplace_back(op.name, op.record != 0 ? op.record : size);
    }
    return out;
}

class OpsTest : public ::testing::Test
{
  protected:
    void SetUp() override { fake_firmware().reset(); }
    FakeFirmware &fw() { return fake_firmware(); }

    // Runs `call` on device 5 and returns its code; `out` gets what it printed.
    int run_captured(const Call &call, std::string *out)
    {
        ::testing::internal::CaptureStdout();
        int ret = call.run(5);
        *out = ::testing::internal::GetCapturedStdout();
        return ret;
    }
};

TEST_F(OpsTest, EveryOperationSendsItsOpcodeAndSizes)
{
    ASSERT_EQ(std::size(kCalls), catalogue().size()) << "an operation without a row";
    for (const Call &call : kCalls) {
        SCOPED_TRACE(call.name);
        auto it = catalogue().find(call.name);
        ASSERT_NE(it, catalogue().end());
        const Wire &want = it->second;
        fw().reset();
        fw().reply_short_by(0);
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(call.run(5), 0);
        (void)::testing::internal::GetCapturedStdout();
        ASSERT_FALSE(fw().requests.empty());
        const ds_req &req = fw().requests.front();
        EXPECT_EQ(req.logic_id, 5u);
        EXPECT_EQ(req.opcode, want.opcode);
        EXPECT_EQ(req.size_in, want.size_in == KOPA_SIZE_CALLER ? call.caller_in : want.size_in);
        EXPECT_EQ(req.size_out,
                  want.size_out == KOPA_SIZE_CALLER ? call.caller_out : want.size_out);
        const bool pid_read = it->first == "get_route_table" || it->first == "get_netdev_status";
        EXPECT_EQ(req.client_pid, pid_read ? static_cast<uint32_t>(getpid()) : 0u);
    }
}

// The reply fuzzer calls every operation and holds it to the contract of its reply.
TEST_F(OpsTest, EveryOperationHasAFuzzRowOfItsReplyKind)
{
    std::map<std::string, const ReplyOp *> rows;
    for (const ReplyOp &op : reply_ops())
        EXPECT_TRUE(rows.emplace(op.name, &op).second) << "two rows of " << op.name;
    for (const auto &[name, wire] : catalogue()) {
        SCOPED_TRACE(name);
        const auto it = rows.find(name);
        ASSERT_NE(it, rows.end()) << "no row in the reply fuzzer";
        const ReplyOp &op = *it->second;
        if (wire.size_out == 0)
            EXPECT_EQ(op.reply, Reply::kNone);
        else if (op.reply == Reply::kTable ||
                 (op.reply == Reply::kRecord && wire.size_out == KOPA_SIZE_CALLER))
            EXPECT_NE(op.record, 0u) << "a record of no size";
        else if (op.reply == Reply::kRecord)
            EXPECT_TRUE(op.record == 0 || op.record == wire.size_out);
        else
            EXPECT_NE(op.reply, Reply::kNone) << "a reply without contract";
    }
}

TEST_F(OpsTest, EveryOperationRejectsLogicIdSixteenBeforeSending)
{
    for (const Call &call : kCalls) {
        EXPECT_EQ(call.run(16), -22) << call.name;
        EXPECT_TRUE(fw().logged("logic id:16 is invalid! expect [0]-[15]")) << call.name;
    }
    EXPECT_TRUE(fw().requests.empty());
}

TEST_F(OpsTest, NullOutputAndBadPortRejected)
{
    EXPECT_EQ(kopa_get_eth_duplex(0, nullptr), -22);
    EXPECT_TRUE(fw().logged("duplex is null, logic_id[0]"));
    EXPECT_EQ(kopa_add_route_table(0, 0, nullptr), -22);
    kopa_send_request req{0x85, nullptr, 0, g_buf, 4, "x"};
    EXPECT_EQ(kopa_send_data(0, 8, &req), -22);
    EXPECT_TRUE(fw().requests.empty());
    EXPECT_EQ(kopa_send_data(0, 7, &req), 0);
    EXPECT_EQ(fw().requests.at(0).opcode, 0x85u);
}

TEST_F(OpsTest, PortReadsPrintTheirAnswer)
{
    fw().answer = [](const ds_req &req, ds_rsp &rsp, unsigned &) {
        rsp = fake_piece(0, 0, 0);
        if (req.opcode == KOPA_OP_get_mtu) {
            kopa_mtu_record rec{0, 9000};
            memcpy(rsp.info, &rec, sizeof(rec));
            rsp.data_len = sizeof(rec);
        } else if (req.opcode == KOPA_OP_get_roce_port) {
            kopa_roce_port_record rec{0, 4791};
            memcpy(rsp.info, &rec, sizeof(rec));
            rsp.data_len = sizeof(rec);
        } else {
            rsp.data_len = 2000; // a full, unterminated text
            memset(rsp.info, 'n', 2000);
        }
        return 0;
    };
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(kopa_get_mtu(0, 0), 0);
    EXPECT_EQ(kopa_get_roce_port(0, 0), 0);
    EXPECT_EQ(kopa_lldp_get_neighbor_info(0), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "mtu:9000\nudp_port:4791\n" + std::string(2000, 'n') + "\n");
}

TEST_F(OpsTest, FixedSizeGetsRefuseAnEmptyOrShortReplyAndPrintNothing)
{
    const auto fixed = gets(true);
    ASSERT_FALSE(fixed.empty());
    for (const auto &[name, size] : fixed) {
        SCOPED_TRACE(name);
        const Call &call = call_of(name);
        struct Case {
            const char *what;
            uint32_t missing; // bytes short of the record; the record's size is an empty reply
        };
        for (const Case &c : {Case{"empty", size}, Case{"one byte short", 1}}) {
            SCOPED_TRACE(c.what);
            fw().reset();
            if (c.missing < size)
                fw().reply_short_by(c.missing); // else the default: result 0, no data
            std::string out;
            EXPECT_EQ(run_captured(call, &out), -22);
            EXPECT_EQ(out, "");
            EXPECT_TRUE(fw().logged("kopa_" + name + " reply carries " +
                                    std::to_string(size - c.missing) + " bytes, expected " +
                                    std::to_string(size)));
        }
        fw().reset();
        fw().reply_short_by(0);
        std::string out;
        EXPECT_EQ(run_captured(call, &out), 0) << "whole reply";
    }
}

TEST_F(OpsTest, RepliesOfTheDevicesLengthAreTakenShortOrEmpty)
{
    const auto sized = gets(false);
    ASSERT_FALSE(sized.empty());
    for (const auto &[name, size] : sized) {
        SCOPED_TRACE(name);
        const Call &call = call_of(name);
        std::string out;
        fw().reset();
        fw().reply_short_by(7);
        // A table of records must end on a record: 7 bytes short of 64 ends inside one.
        // (the certificate records too, which the read answers without their count).
        const bool table =
            name == "get_tls_cfg" || std::ranges::any_of(reply_ops(), [&](const ReplyOp &op) {
                return op.name == name && op.reply == Reply::kTable;
            });
        EXPECT_EQ(run_captured(call, &out), table ? -22 : 0) << "short";
        fw().reset();
        // A text without even its terminator is no text; every other reply may be empty.
        EXPECT_EQ(run_captured(call, &out), name == "lldp_get_neighbor_info" ? -22 : 0) << "empty";
    }
}

TEST_F(OpsTest, CommandsWithoutReplyIgnoreBytesTheyDidNotAskFor)
{
    for (const auto &[name, wire] : catalogue()) {
        if (wire.size_out != 0)
            continue;
        SCOPED_TRACE(name);
        fw().reset();
        fw().answer = [](const ds_req &, ds_rsp &rsp, unsigned &) {
            rsp = fake_piece(0, KOPA_FRAG_WHOLE, 4, 0x11);
            return 0;
        };
        std::string out;
        EXPECT_EQ(run_captured(call_of(name), &out), 0);
    }
}

TEST_F(OpsTest, PrintingReadsRefuseAPieceTheChannelDidNotCopy)
{
    // A first piece longer than a packet is passed over by the channel yet counted.
    fw().answer = [](const ds_req &, ds_rsp &rsp, unsigned &) {
        rsp = fake_piece(0, KOPA_FRAG_WHOLE, 0);
        rsp.data_len = KOPA_PKT_PAYLOAD + 1;
        return 0;
    };
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(kopa_get_mtu(0, 0), -22);
    EXPECT_EQ(kopa_get_roce_port(0, 0), -22);
    EXPECT_EQ(kopa_lldp_get_neighbor_info(0), -22);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(fw().logged("kopa_get_mtu reply carries 2001 bytes, expected 5"));
    EXPECT_TRUE(
        fw().logged("kopa_lldp_get_neighbor_info reply carries 2001 bytes, 0 of them copied"));
}

// Replies made of pieces (frag, data length) in order, one per call.
void answer_with(FakeFirmware &fw, std::vector<std::pair<uint32_t, uint32_t>> pieces)
{
    fw.answer = [pieces, next = size_t{0}](const ds_req &, ds_rsp &rsp, unsigned &) mutable {
        const auto [frag, len] = pieces.at(next < pieces.size() ? next++ : pieces.size() - 1);
        rsp = fake_piece(0, frag, len <= KOPA_PKT_PAYLOAD ? len : 0, 0x11);
        rsp.data_len = len;
        return 0;
    };
}

TEST_F(OpsTest, ReadsOfTheDevicesLengthRefuseMoreBytesThanCopied)
{
    // A first piece longer than a packet is passed over by the channel yet counted: records
    // counted from it would send the caller past its array (the -process and -reg repro), and a
    // text sized by it would be empty bytes the device never sent.
    for (uint32_t len : {2001u, 2016u, 0xFFFFFFF0u}) {
        for (const auto &[name, size] : gets(false)) {
            SCOPED_TRACE(name + " " + std::to_string(len));
            answer_with(fw(), {{KOPA_FRAG_WHOLE, len}});
            std::string out;
            EXPECT_EQ(run_captured(call_of(name), &out), -22);
            EXPECT_EQ(out, "");
            EXPECT_TRUE(fw().logged("kopa_" + name + " reply carries " + std::to_string(len) +
                                    " bytes, 0 of them copied"));
        }
    }
    kopa_process_record procs[4];
    uint32_t count = 4;
    answer_with(fw(), {{KOPA_FRAG_WHOLE, 2001}});
    EXPECT_EQ(kopa_get_device_process(0, procs, &count), -22);
    EXPECT_EQ(count, 0u);
}

TEST_F(OpsTest, RecordLongerThanAPacketRefusesPiecesTheChannelDidNotCopy)
{
    // The envelope key (2052 bytes) counted whole from pieces of which little or nothing was
    // copied: one piece of the record's length, or one of 2010 bytes and a last one of 42.
    struct Case {
        const char *what;
        std::vector<std::pair<uint32_t, uint32_t>> pieces;
        uint32_t copied;
    };
    const Case cases[] = {
        {"one piece", {{KOPA_FRAG_WHOLE, 2052}}, 0},
        {"last piece", {{KOPA_FRAG_LAST, 2052}}, 0},
        {"passed over, then copied", {{KOPA_FRAG_MIDDLE, 2010}, {KOPA_FRAG_LAST, 42}}, 42},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        fw().reset();
        answer_with(fw(), c.pieces);
        kopa_envelope_pub_key key{};
        EXPECT_EQ(kopa_get_tls_digital_envelope_pub_ky(0, &key), -22);
        EXPECT_TRUE(fw().logged("kopa_get_tls_digital_envelope_pub_ky reply carries 2052 bytes, " +
                                std::to_string(c.copied) + " of them copied, expected 2052"));
    }
    // Pieces of 2000 and 52 are the whole record.
    fw().reset();
    answer_with(fw(), {{KOPA_FRAG_MIDDLE, 2000}, {KOPA_FRAG_LAST, 52}});
    kopa_envelope_pub_key key{};
    EXPECT_EQ(kopa_get_tls_digital_envelope_pub_ky(0, &key), 0);
}

TEST_F(OpsTest, LldpTextIsPrintedWithControlCharactersEscaped)
{
    // A title change, a colour, a carriage return over the line and a backspace; after the
    // terminator a screen clear that must not be printed at all.
    static const char kText[] = "Chassis \x1b]0;owned\x07id\tport\\1\r\b\x7f caf\xc3\xa9\n"
                                "TTL 120\0\x1b[2J";
    fw().answer = [](const ds_req &, ds_rsp &rsp, unsigned &) {
        rsp = fake_piece(0, KOPA_FRAG_WHOLE, sizeof(kText));
        memcpy(rsp.info, kText, sizeof(kText));
        return 0;
    };
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(kopa_lldp_get_neighbor_info(0), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "Chassis \\x1b]0;owned\\x07id\tport\\1\\x0d\\x08\\x7f caf\xc3\xa9\nTTL 120\n");
}

} // namespace
