// Shared setup of the emulator tests: a fresh state directory per test and a client that drives
// the channel packet by packet, keeping every request and reply header for inspection.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "emu/state.hpp"
#include "platform/kopa_platform.h"
#include "tests/support/tool_sandbox.hpp"

/// One library call as the client saw it.
struct Exchange {
    ds_req req;
    ds_rsp rsp;
    int ret;
    unsigned rsp_len;
};

/// Outcome of a whole command.
struct CommandResult {
    int ret = 0;                 ///< non-zero when a library call failed
    int32_t result = 0;          ///< firmware result of the last reply
    std::vector<uint8_t> out;    ///< joined reply payload
    std::vector<Exchange> calls; ///< every call, in order
};

/// A client of the channel: cuts the payload into packets and fetches reply pieces like the
/// tool does, without its checks, so the tests see exactly what the firmware answers.
inline CommandResult send_command(uint32_t logic_id, uint32_t opcode, const void *in,
                                  uint32_t size_in, uint32_t size_out, uint32_t client_pid = 0)
{
    CommandResult r;
    ds_req req{};
    req.logic_id = logic_id;
    req.opcode = opcode;
    req.size_in = size_in;
    req.size_out = size_out;
    req.tgid = kelvar_get_bare_tgid();
    req.client_pid = client_pid;
    const auto *bytes = static_cast<const uint8_t *>(in);
    uint32_t offset = 0;
    auto call = [&](ds_req &q) {
        Exchange e{};
        e.req = q;
        e.rsp_len = KOPA_RSP_SIZE;
        e.ret = kopa_cmd_get_network_device_info(logic_id, &q, KOPA_REQ_SIZE, &e.rsp, &e.rsp_len);
        r.calls.push_back(e);
        r.ret = e.ret;
        r.result = e.rsp.result;
        return e;
    };
    for (;;) { // send phase
        uint32_t left = size_in - offset;
        if (size_in > KOPA_PKT_PAYLOAD) {
            req.copy_size = std::min(left, KOPA_PKT_PAYLOAD);
            req.frag = offset == 0 ? KOPA_FRAG_FIRST
                                   : (req.copy_size != left ? KOPA_FRAG_MIDDLE : KOPA_FRAG_LAST);
        } else {
            req.frag = KOPA_FRAG_WHOLE;
            req.copy_size = size_in;
        }
        memset(req.info, 0, sizeof req.info);
        if (req.copy_size != 0)
            memcpy(req.info, bytes + offset, req.copy_size);
        Exchange e = call(req);
        if (e.ret != 0 || e.rsp.result != 0)
            return r;
        offset += req.copy_size;
        if (req.frag == KOPA_FRAG_LAST || req.frag == KOPA_FRAG_WHOLE || offset == size_in)
            break;
    }
    req.direction = KOPA_DIR_FETCH;
    for (;;) { // receive phase
        const ds_rsp &rsp = r.calls.back().rsp;
        r.out.insert(r.out.end(), rsp.info, rsp.info + std::min(rsp.data_len, KOPA_PKT_PAYLOAD));
        if (rsp.frag == KOPA_FRAG_WHOLE || rsp.frag == KOPA_FRAG_LAST || r.calls.size() > 1000)
            return r;
        req.frag = rsp.frag;
        Exchange e = call(req);
        if (e.ret != 0 || e.rsp.result != 0)
            return r;
    }
}

template <typename T>
CommandResult send_record(uint32_t logic_id, uint32_t opcode, const T &record,
                          uint32_t size_out = 0)
{
    return send_command(logic_id, opcode, &record, sizeof record, size_out);
}

/// A fresh emulated host per test, in its own directory named by $KOPA_EMU_DIR.
class EmuHostTest : public ::testing::Test
{
  protected:
    void init(const kopa_emu::InitOptions &options)
    {
        ASSERT_EQ(kopa_emu::init_host(dir_, options), 0);
    }

    /// Runs kopa-emu with `args` on this test's host.
    ProcResult emu(const std::vector<std::string> &args) const
    {
        std::vector<std::string> argv = {kopa_emu_bin()};
        argv.insert(argv.end(), args.begin(), args.end());
        return run_process(argv, {{"KOPA_EMU_DIR", dir_}});
    }

    /// Adds a fault with `kopa-emu fault add`, so that the tests go through its grammar.
    void inject(const std::vector<std::string> &args) const
    {
        std::vector<std::string> argv = {"fault", "add"};
        argv.insert(argv.end(), args.begin(), args.end());
        ProcResult r = emu(argv);
        ASSERT_EQ(r.status, 0) << r.err;
    }

    void SetUp() override
    {
        std::string tmpl = (std::filesystem::temp_directory_path() / "emu-test-XXXXXX").string();
        ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
        dir_ = tmpl;
        setenv("KOPA_EMU_DIR", dir_.c_str(), 1);
        init(kopa_emu::InitOptions{});
    }

    void TearDown() override
    {
        std::error_code ec;
        std::filesystem::remove_all(dir_, ec);
        unsetenv("KOPA_EMU_DIR");
    }

    std::string dir_;
};
