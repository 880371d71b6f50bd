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

} // namespace

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
