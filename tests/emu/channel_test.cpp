// Tests of the emulated firmware's side of the channel: packets, reply pieces, faults, refusals.
#include "tests/emu/emu_fixture.hpp"

#include <arpa/inet.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "emu/state.hpp"

using kopa_emu::Fault;
using kopa_emu::FaultKind;

class EmuChannelTest : public EmuHostTest
{
  protected:
    void add_fault(const Fault &f)
    {
        kopa_emu::Session s;
        s.faults().push_back(f);
        s.mark_faults_dirty();
    }
};

TEST_F(EmuChannelTest, LongRequestArrivesInThirtyPacketsAndRunsOnTheLast)
{
    ASSERT_EQ(kopa_emu::set_journal(dir_, true), 0);
    std::vector<uint8_t> record(TLS_CFG_SIZE, 0x5A);
    CommandResult r = send_command(2, KOPA_OP_set_tls_cfg, record.data(), TLS_CFG_SIZE, 0);

    ASSERT_EQ(r.ret, 0);
    ASSERT_EQ(r.calls.size(), 30u);
    for (size_t i = 0; i < r.calls.size(); ++i) {
        const Exchange &e = r.calls[i];
        const uint32_t frag =
            i == 0 ? KOPA_FRAG_FIRST : (i == 29 ? KOPA_FRAG_LAST : KOPA_FRAG_MIDDLE);
        EXPECT_EQ(e.req.frag, frag) << "packet " << i;
        EXPECT_EQ(e.req.copy_size, i == 29 ? 40u : 2000u) << "packet " << i;
        EXPECT_EQ(e.rsp_len, KOPA_RSP_SIZE);
        if (i < 29) {
            EXPECT_EQ(e.rsp.result, 0) << "packet " << i;
            EXPECT_EQ(e.rsp.data_len, 0u) << "packet " << i;
        }
    }
    // The garbage record only fails once it is whole: no envelope key was ever handed out.
    EXPECT_EQ(r.calls.back().rsp.result, KOPA_RESULT_TLS_ILLEGAL);
    EXPECT_EQ(r.calls.back().rsp.data_len, 0u);

    std::vector<kopa_emu::JournalRecord> journal = kopa_emu::read_journal(dir_);
    ASSERT_EQ(journal.size(), 30u);
    EXPECT_EQ(journal.front().frag, KOPA_FRAG_FIRST);
    EXPECT_EQ(journal.back().copy_size, 40u);
    EXPECT_EQ(journal.back().result, KOPA_RESULT_TLS_ILLEGAL);
    EXPECT_EQ(journal.back().tgid, kelvar_get_bare_tgid());
}

TEST_F(EmuChannelTest, RepliesComeInPiecesAndNeverExceedTheCapacity)
{
    struct Case {
        uint32_t opcode;
        uint32_t size_out;
        std::vector<uint32_t> frags;
        size_t total;
    };
    const Case cases[] = {
        {KOPA_OP_get_tls_digital_envelope_pub_ky, 2052, {KOPA_FRAG_MIDDLE, KOPA_FRAG_LAST}, 2052},
        {KOPA_OP_get_tls_digital_envelope_pub_ky, 4100, {KOPA_FRAG_MIDDLE, KOPA_FRAG_LAST}, 2052},
        {KOPA_OP_get_tls_digital_envelope_pub_ky, 100, {KOPA_FRAG_WHOLE}, 100},
        {KOPA_OP_get_route_table, 386000, {KOPA_FRAG_WHOLE}, 23}, // "Route table is empty.\n"
        {KOPA_OP_get_route_table, 10, {KOPA_FRAG_WHOLE}, 10},
        {KOPA_OP_get_mtu, 5, {KOPA_FRAG_WHOLE}, 5},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << "opcode " << c.opcode << " size_out " << c.size_out);
        CommandResult r = send_command(0, c.opcode, nullptr, 0, c.size_out);
        ASSERT_EQ(r.ret, 0);
        ASSERT_EQ(r.result, 0);
        ASSERT_EQ(r.calls.size(), c.frags.size());
        for (size_t i = 0; i < c.frags.size(); ++i) {
            EXPECT_EQ(r.calls[i].rsp.frag, c.frags[i]);
            EXPECT_EQ(r.calls[i].req.direction, i == 0 ? KOPA_DIR_SEND : KOPA_DIR_FETCH);
        }
        EXPECT_EQ(r.out.size(), c.total);
    }
    // A cut text stays zero-terminated.
    CommandResult cut = send_command(0, KOPA_OP_get_route_table, nullptr, 0, 10);
    EXPECT_EQ(cut.out.back(), 0);
}

TEST_F(EmuChannelTest, FetchMustEchoThePieceReceived)
{
    ds_req req{};
    req.opcode = KOPA_OP_get_tls_digital_envelope_pub_ky;
    req.size_out = sizeof(kopa_envelope_pub_key);
    req.tgid = kelvar_get_bare_tgid();
    ds_rsp rsp{};
    unsigned len = KOPA_RSP_SIZE;
    ASSERT_EQ(kopa_cmd_get_network_device_info(0, &req, KOPA_REQ_SIZE, &rsp, &len), 0);
    ASSERT_EQ(rsp.frag, KOPA_FRAG_MIDDLE);

    req.direction = KOPA_DIR_FETCH;
    req.frag = KOPA_FRAG_FIRST;
    ASSERT_EQ(kopa_cmd_get_network_device_info(0, &req, KOPA_REQ_SIZE, &rsp, &len), 0);
    EXPECT_EQ(rsp.result, -22);
    EXPECT_EQ(rsp.data_len, 0u);
    // The refusal abandons the reply: even the right echo finds nothing pending now.
    req.frag = KOPA_FRAG_MIDDLE;
    ASSERT_EQ(kopa_cmd_get_network_device_info(0, &req, KOPA_REQ_SIZE, &rsp, &len), 0);
    EXPECT_EQ(rsp.result, -22);
}

TEST_F(EmuChannelTest, MalformedCallsAreRefused)
{
    ds_req good{};
    good.opcode = KOPA_OP_get_mtu;
    good.size_out = 5;
    good.tgid = kelvar_get_bare_tgid();

    struct Case {
        const char *what;
        uint32_t logic_id;
        unsigned req_len;
        unsigned rsp_len;
        void (*edit)(ds_req &);
        int ret;
        int32_t result;
    };
    const Case cases[] = {
        {"short request", 0, KOPA_REQ_SIZE - 1, KOPA_RSP_SIZE, [](ds_req &) {}, -22, 0},
        {"wrong reply size", 0, KOPA_REQ_SIZE, 2000, [](ds_req &) {}, -22, 0},
        {"logical id 16", 16, KOPA_REQ_SIZE, KOPA_RSP_SIZE, [](ds_req &) {}, -22, 0},
        {"absent device", 9, KOPA_REQ_SIZE, KOPA_RSP_SIZE, [](ds_req &) {}, -19, 0},
        {"unknown opcode", 0, KOPA_REQ_SIZE, KOPA_RSP_SIZE, [](ds_req &q) { q.opcode = 0x7777; }, 0,
         -22},
        {"copy_size beyond size_in", 0, KOPA_REQ_SIZE, KOPA_RSP_SIZE,
         [](ds_req &q) { q.copy_size = 4; }, 0, -22},
        {"copy_size beyond a packet", 0, KOPA_REQ_SIZE, KOPA_RSP_SIZE,
         [](ds_req &q) { q.size_in = q.copy_size = 2001; }, 0, -22},
        {"size_in not the record's", 0, KOPA_REQ_SIZE, KOPA_RSP_SIZE,
         [](ds_req &q) {
             q.opcode = KOPA_OP_set_mtu;
             q.size_in = q.copy_size = 4;
         },
         0, -22},
        {"middle packet without a first", 0, KOPA_REQ_SIZE, KOPA_RSP_SIZE,
         [](ds_req &q) {
             q.frag = KOPA_FRAG_MIDDLE;
             q.size_in = 6000;
             q.copy_size = 2000;
         },
         0, -22},
        {"first packet of a short command", 0, KOPA_REQ_SIZE, KOPA_RSP_SIZE,
         [](ds_req &q) {
             q.frag = KOPA_FRAG_FIRST;
             q.size_in = q.copy_size = 2000;
         },
         0, -22},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        ds_req req = good;
        req.logic_id = c.logic_id;
        c.edit(req);
        ds_rsp rsp{};
        unsigned len = c.rsp_len;
        EXPECT_EQ(kopa_cmd_get_network_device_info(c.logic_id, &req, c.req_len, &rsp, &len), c.ret);
        EXPECT_EQ(len, KOPA_RSP_SIZE);
        EXPECT_EQ(rsp.result, c.result);
        EXPECT_EQ(rsp.data_len, 0u);
    }
}

TEST_F(EmuChannelTest, ForcedResultAnswersTheFirstPacketAndExpires)
{
    add_fault({FaultKind::kResult, KOPA_OP_set_tls_cfg, "", KOPA_RESULT_EPERM, 1});
    std::vector<uint8_t> record(TLS_CFG_SIZE, 0);
    CommandResult r = send_command(0, KOPA_OP_set_tls_cfg, record.data(), TLS_CFG_SIZE, 0);
    ASSERT_EQ(r.calls.size(), 1u);
    EXPECT_EQ(r.result, KOPA_RESULT_EPERM);
    EXPECT_EQ(r.calls[0].rsp.data_len, 0u);

    r = send_command(0, KOPA_OP_set_tls_cfg, record.data(), TLS_CFG_SIZE, 0);
    EXPECT_EQ(r.calls.size(), 30u);
    EXPECT_NE(r.result, KOPA_RESULT_EPERM);

    // Library functions: a forced return for the next two calls, then the real answer.
    add_fault({FaultKind::kFunction, kopa_emu::kAnyOpcode, "kopa_get_device_health", 3, 2});
    unsigned health = 77;
    EXPECT_EQ(kopa_get_device_health(0, &health), 3);
    EXPECT_EQ(kopa_get_device_health(0, &health), 3);
    EXPECT_EQ(health, 77u);
    EXPECT_EQ(kopa_get_device_health(0, &health), 0);
    EXPECT_EQ(health, 0u);
    kopa_emu::Session s;
    EXPECT_TRUE(s.faults().empty());
}

TEST_F(EmuChannelTest, ChannelFaultsAlterTheFirstReplyPiece)
{
    add_fault({FaultKind::kFrag, KOPA_OP_get_mtu, "", KOPA_FRAG_FIRST, 1});
    add_fault({FaultKind::kDataLen, KOPA_OP_get_mtu, "", 3000, 1});
    add_fault({FaultKind::kRspLen, kopa_emu::kAnyOpcode, "", 2000, 1});
    CommandResult r = send_command(0, KOPA_OP_get_mtu, nullptr, 0, 5);
    ASSERT_EQ(r.calls.size(), 2u); // a piece marked first makes the client fetch, in vain
    EXPECT_EQ(r.calls[1].rsp.result, -22);
    EXPECT_EQ(r.calls[0].rsp.frag, KOPA_FRAG_FIRST);
    EXPECT_EQ(r.calls[0].rsp.data_len, 3000u);
    EXPECT_EQ(r.calls[0].rsp_len, 2000u);

    r = send_command(0, KOPA_OP_get_mtu, nullptr, 0, 5);
    EXPECT_EQ(r.calls[0].rsp.frag, KOPA_FRAG_WHOLE);
    EXPECT_EQ(r.calls[0].rsp.data_len, 5u);
    EXPECT_EQ(r.calls[0].rsp_len, KOPA_RSP_SIZE);
}

namespace
{

const std::string kChannelCall(kopa_emu::kChannelCall);

std::vector<std::string> operator+(std::vector<std::string> a, const std::vector<std::string> &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

std::string joined(const std::vector<std::string> &args)
{
    std::string text;
    for (const std::string &a : args)
        text += (text.empty() ? "" : " ") + a;
    return text;
}

size_t zero_bytes(const uint8_t *begin, const uint8_t *end)
{
    return static_cast<size_t>(std::count(begin, end, 0));
}

} // namespace

TEST_F(EmuChannelTest, FaultGrammarIsListedAndRefusesWhatCannotApply)
{
    struct Case {
        std::vector<std::string> args;
        const char *listed; ///< its line in `fault list`; nullptr when refused
    };
    const Case cases[] = {
        {{"--op", "get_mtu", "--short", "0", "--piece", "2"}, "short 0xa 0 -1 piece=2"},
        {{"--garble", "--op", "lldp_get_neighbor_info", "--count", "2"}, "garble 0x2 0 2"},
        {{"--delay-ms", "250"}, "delay any 250 -1"},
        {{"--func", "kopa_get_device_health", "--delay-ms", "100"},
         "delay kopa_get_device_health 100 -1"},
        {{"--func", kChannelCall, "--op", "set_mtu", "--delay-ms", "5"}, "delay 0x9 5 -1"},
        {{"--op", "set_mtu", "--result", "-1", "--after-apply"}, "result 0x9 -1 -1 after-apply"},
        {{"--func", kChannelCall, "--op", "get_tls_digital_envelope_pub_ky", "--piece", "2",
          "--result", "-5"},
         "function kopa_cmd_get_network_device_info -5 -1 op=0x25 piece=2"},
        {{"--func", "kopa_set_device_ip_address", "--result", "-5", "--after-apply"},
         "function kopa_set_device_ip_address -5 -1 after-apply"},
        {{"--frag", "1", "--count", "3"}, "frag any 1 3"},
        {{"--short", "2001"}, nullptr},
        {{"--short", "-1"}, nullptr},
        {{"--delay-ms", "0"}, nullptr},
        {{"--garble", "--piece", "0"}, nullptr},
        {{"--garble", "--short", "1"}, nullptr},
        {{"--garble", "3"}, nullptr},
        {{"--frag", "1", "--after-apply"}, nullptr},
        {{"--frag", "3", "--func", kChannelCall}, nullptr},
        {{"--func", "kopa_get_board_id", "--op", "get_mtu", "--result", "1"}, nullptr},
        {{"--func", "kopa_get_board_id", "--piece", "2", "--result", "1"}, nullptr},
        {{"--result", "3", "--piece", "2"}, nullptr},
    };
    std::string listed;
    for (const Case &c : cases) {
        SCOPED_TRACE(joined(c.args));
        ProcResult r = emu(std::vector<std::string>{"fault", "add"} + c.args);
        EXPECT_EQ(r.status, c.listed != nullptr ? 0 : 2) << r.err;
        if (c.listed != nullptr)
            listed += std::string(c.listed) + "\n";
    }
    EXPECT_EQ(emu({"fault", "list"}).out, listed);
    ASSERT_EQ(emu({"fault", "clear"}).status, 0);
    EXPECT_EQ(emu({"fault", "list"}).out, "");
}

TEST_F(EmuChannelTest, ShortRepliesKeepTheirLeadingBytesAndNothingElse)
{
    struct Case {
        uint32_t opcode;
        const char *name;
        uint32_t size_out;
        uint32_t keep;
    };
    const Case cases[] = {
        {KOPA_OP_get_mtu, "get_mtu", 5, 2},
        {KOPA_OP_get_mtu, "get_mtu", 5, 0}, // empty, yet result 0
        {KOPA_OP_get_mac_address, "get_mac_address", 6, 5},
        {KOPA_OP_get_optical_info, "get_optical_info", KOPA_OPTICAL_INFO_SIZE, 100},
        {KOPA_OP_get_firmware_version, "get_firmware_version", 128, 3}, // no terminator left
        {KOPA_OP_get_roce_port, "get_roce_port", 6, 6},                 // the whole record
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.name << " keeping " << c.keep);
        const CommandResult whole = send_command(0, c.opcode, nullptr, 0, c.size_out);
        ASSERT_EQ(whole.result, 0);
        ASSERT_GE(whole.out.size(), c.keep);
        inject({"--op", c.name, "--short", std::to_string(c.keep), "--count", "1"});

        const CommandResult cut = send_command(0, c.opcode, nullptr, 0, c.size_out);
        ASSERT_EQ(cut.calls.size(), 1u);
        const ds_rsp &rsp = cut.calls[0].rsp;
        EXPECT_EQ(cut.ret, 0);
        EXPECT_EQ(rsp.result, 0);
        EXPECT_EQ(rsp.frag, KOPA_FRAG_WHOLE);
        EXPECT_EQ(rsp.data_len, c.keep);
        EXPECT_EQ(cut.out, std::vector<uint8_t>(whole.out.begin(), whole.out.begin() + c.keep));
        // The bytes cut off are not left behind in the record either.
        EXPECT_EQ(zero_bytes(rsp.info + c.keep, rsp.info + KOPA_PKT_PAYLOAD),
                  KOPA_PKT_PAYLOAD - c.keep);
        EXPECT_EQ(send_command(0, c.opcode, nullptr, 0, c.size_out).out, whole.out);
    }
}

TEST_F(EmuChannelTest, GarbledPayloadKeepsItsLengthButNotItsBytes)
{
    struct Case {
        uint32_t opcode;
        const char *name;
        uint32_t size_out;
    };
    const Case cases[] = {
        {KOPA_OP_get_mtu, "get_mtu", 5},
        {KOPA_OP_get_firmware_version, "get_firmware_version", 128},
        {KOPA_OP_lldp_get_neighbor_info, "lldp_get_neighbor_info", 2000},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const CommandResult whole = send_command(1, c.opcode, nullptr, 0, c.size_out);
        inject({"--op", c.name, "--garble", "--count", "1"});
        const CommandResult garbled = send_command(1, c.opcode, nullptr, 0, c.size_out);
        EXPECT_EQ(garbled.result, 0);
        ASSERT_EQ(garbled.out.size(), whole.out.size());
        EXPECT_NE(garbled.out, whole.out);
        // Not one zero byte: a text reply arrives without its terminator.
        EXPECT_EQ(zero_bytes(garbled.out.data(), garbled.out.data() + garbled.out.size()), 0u);
    }
}

TEST_F(EmuChannelTest, LaterPiecesOfAReplyBreakAlone)
{
    // The envelope key (2052 bytes) is the reply that takes two pieces: records 1 and 2.
    constexpr uint32_t kKey = sizeof(kopa_envelope_pub_key);
    const CommandResult whole =
        send_command(0, KOPA_OP_get_tls_digital_envelope_pub_ky, nullptr, 0, kKey);
    ASSERT_EQ(whole.calls.size(), 2u);
    ASSERT_EQ(whole.out.size(), kKey);
    const ds_rsp &first = whole.calls[0].rsp;
    const ds_rsp &second = whole.calls[1].rsp;

    struct Case {
        std::vector<std::string> args;
        void (*check)(const Exchange &broken, const ds_rsp &intact);
    };
    const Case cases[] = {
        {{"--short", "0"},
         [](const Exchange &e, const ds_rsp &) {
             EXPECT_EQ(e.rsp.result, 0);
             EXPECT_EQ(e.rsp.frag, KOPA_FRAG_LAST);
             EXPECT_EQ(e.rsp.data_len, 0u);
         }},
        {{"--short", "10"},
         [](const Exchange &e, const ds_rsp &intact) {
             EXPECT_EQ(e.rsp.data_len, 10u);
             EXPECT_EQ(memcmp(e.rsp.info, intact.info, 10), 0);
         }},
        {{"--garble"},
         [](const Exchange &e, const ds_rsp &intact) {
             EXPECT_EQ(e.rsp.data_len, intact.data_len);
             EXPECT_NE(memcmp(e.rsp.info, intact.info, intact.data_len), 0);
         }},
        {{"--frag", "1"}, [](const Exchange &e, const ds_rsp &) { EXPECT_EQ(e.rsp.frag, 1u); }},
        {{"--data-len", "2001"},
         [](const Exchange &e, const ds_rsp &) { EXPECT_EQ(e.rsp.data_len, 2001u); }},
        {{"--rsp-len", "2000"},
         [](const Exchange &e, const ds_rsp &) { EXPECT_EQ(e.rsp_len, 2000u); }},
        {{"--result", "-1"},
         [](const Exchange &e, const ds_rsp &) {
             EXPECT_EQ(e.rsp.result, -1);
             EXPECT_EQ(e.rsp.data_len, 0u);
         }},
        {{"--func", kChannelCall, "--result", "-5"},
         [](const Exchange &e, const ds_rsp &) { EXPECT_EQ(e.ret, -5); }},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(joined(c.args));
        inject(c.args + std::vector<std::string>{"--op", "get_tls_digital_envelope_pub_ky",
                                                 "--piece", "2", "--count", "1"});
        const CommandResult r =
            send_command(0, KOPA_OP_get_tls_digital_envelope_pub_ky, nullptr, 0, kKey);
        ASSERT_GE(r.calls.size(), 2u);
        const ds_rsp &got = r.calls[0].rsp;
        EXPECT_EQ(got.result, 0);
        EXPECT_EQ(got.frag, first.frag);
        EXPECT_EQ(got.data_len, first.data_len);
        EXPECT_EQ(memcmp(got.info, first.info, KOPA_PKT_PAYLOAD), 0);
        EXPECT_EQ(r.calls[0].rsp_len, KOPA_RSP_SIZE);
        c.check(r.calls[1], second);
        kopa_emu::Session s;
        EXPECT_TRUE(s.faults().empty()) << "a --count 1 fault is used once";
    }
}

TEST_F(EmuChannelTest, PiecesCountTheRepliesToEverySentPacket)
{
    std::vector<uint8_t> record(TLS_CFG_SIZE, 0);
    struct Case {
        std::vector<std::string> args;
        size_t calls;  ///< calls the client makes
        size_t broken; ///< index of the reply the fault hits
        void (*check)(const Exchange &);
    };
    const Case cases[] = {
        // A refusal of record 5 stops the send there.
        {{"--piece", "5", "--result", "-1"},
         5,
         4,
         [](const Exchange &e) { EXPECT_EQ(e.rsp.result, -1); }},
        {{"--func", kChannelCall, "--piece", "3", "--result", "-5"},
         3,
         2,
         [](const Exchange &e) { EXPECT_EQ(e.ret, -5); }},
        // A broken acknowledgement does not stop the firmware from joining the rest.
        {{"--piece", "5", "--data-len", "7"},
         30,
         4,
         [](const Exchange &e) { EXPECT_EQ(e.rsp.data_len, 7u); }},
        // Without --piece a reply fault hits the answer: the reply to the 30th packet.
        {{"--frag", "2"},
         30,
         29,
         [](const Exchange &e) {
             EXPECT_EQ(e.rsp.frag, KOPA_FRAG_MIDDLE);
             EXPECT_EQ(e.rsp.result, KOPA_RESULT_TLS_ILLEGAL);
         }},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(joined(c.args));
        inject(c.args + std::vector<std::string>{"--op", "set_tls_cfg", "--count", "1"});
        const CommandResult r =
            send_command(0, KOPA_OP_set_tls_cfg, record.data(), TLS_CFG_SIZE, 0);
        ASSERT_EQ(r.calls.size(), c.calls);
        for (size_t i = 0; i < c.broken; ++i) {
            EXPECT_EQ(r.calls[i].ret, 0);
            EXPECT_EQ(r.calls[i].rsp.result, 0);
            EXPECT_EQ(r.calls[i].rsp.data_len, 0u);
        }
        c.check(r.calls[c.broken]);
    }
}

TEST_F(EmuChannelTest, AfterApplyBreaksTheReplyToASetTheDeviceKeeps)
{
    struct Case {
        std::vector<std::string> args;
        int ret;
        int32_t result;
        uint32_t frag;
        uint32_t mtu; ///< what the device holds afterwards
    };
    const Case cases[] = {
        {{"--result", "-1", "--after-apply"}, 0, -1, KOPA_FRAG_WHOLE, 9000},
        {{"--result", "-1"}, 0, -1, KOPA_FRAG_WHOLE, 1500},
        {{"--frag", "1"}, 0, 0, KOPA_FRAG_FIRST, 9000}, // reply faults act after anyway
        {{"--func", kChannelCall, "--result", "-5", "--after-apply"}, -5, 0, KOPA_FRAG_WHOLE, 9000},
        {{"--func", kChannelCall, "--result", "-5"}, -5, 0, KOPA_FRAG_WHOLE, 1500},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(joined(c.args));
        init(kopa_emu::InitOptions{});
        inject(c.args + std::vector<std::string>{"--op", "set_mtu", "--count", "1"});
        const CommandResult r = send_record(0, KOPA_OP_set_mtu, kopa_mtu_record{0, 9000});
        const Exchange &e = r.calls.front();
        EXPECT_EQ(e.ret, c.ret);
        EXPECT_EQ(e.rsp.result, c.result);
        EXPECT_EQ(e.rsp.frag, c.frag);
        EXPECT_EQ(e.rsp.data_len, 0u);
        kopa_emu::Session s;
        EXPECT_EQ(s.device(0)->mtu, c.mtu);
    }

    // The same for a library function: the address is set, the call still fails.
    inject({"--func", "kopa_set_device_ip_address", "--result", "-5", "--after-apply"});
    const kopa_ip_record roce{htonl(0x0A000002u), htonl(0xFFFFFF00u)};
    EXPECT_EQ(kopa_set_device_ip_address(0, KOPA_PORT_TYPE_ROCE, 0, &roce), -5);
    kopa_ip_record now{};
    ASSERT_EQ(kopa_get_device_ip_address(0, KOPA_PORT_TYPE_ROCE, 0, &now), 0);
    EXPECT_EQ(now.address, roce.address);
}

TEST_F(EmuChannelTest, DelayHoldsTheCallThenAnswers)
{
    using Clock = std::chrono::steady_clock;
    const auto ms_since = [](Clock::time_point start) {
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
    };
    inject({"--op", "get_mtu", "--delay-ms", "300", "--count", "1"});
    Clock::time_point start = Clock::now();
    CommandResult r = send_command(0, KOPA_OP_get_mtu, nullptr, 0, 5);
    EXPECT_GE(ms_since(start), 300);
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.out.size(), 5u);
    start = Clock::now();
    send_command(0, KOPA_OP_get_mtu, nullptr, 0, 5);
    EXPECT_LT(ms_since(start), 300);

    inject({"--func", "kopa_get_device_health", "--delay-ms", "300", "--count", "1"});
    start = Clock::now();
    unsigned health = 7;
    EXPECT_EQ(kopa_get_device_health(0, &health), 0);
    EXPECT_GE(ms_since(start), 300);
    EXPECT_EQ(health, KOPA_HEALTH_OK);
}

TEST_F(EmuChannelTest, CallKilledInFlightLeavesWhatTheFirmwareDidBeforeTheDelay)
{
    struct Case {
        const char *what;
        bool after_apply;
        uint32_t mtu;
    };
    const Case cases[] = {
        {"delayed before the firmware", false, 1500},
        {"delayed after the firmware applied it", true, 9000},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        init(kopa_emu::InitOptions{});
        std::vector<std::string> args = {"--op", "set_mtu", "--delay-ms", "20000", "--count", "1"};
        if (c.after_apply)
            args.push_back("--after-apply");
        inject(args);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            send_record(0, KOPA_OP_set_mtu, kopa_mtu_record{0, 9000});
            _exit(0);
        }
        // The fault leaves the list when the call starts to sleep, and the state stays free
        // for others meanwhile.
        bool in_flight = false;
        for (int i = 0; i < 500 && !in_flight; ++i) {
            {
                kopa_emu::Session s;
                in_flight = s.faults().empty();
            }
            if (!in_flight)
                usleep(10000);
        }
        kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(in_flight);
        EXPECT_TRUE(WIFSIGNALED(status)) << "the call ended before it was killed";
        kopa_emu::Session s;
        EXPECT_EQ(s.device(0)->mtu, c.mtu);
    }
}
