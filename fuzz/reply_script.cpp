// A firmware whose every reply record a fuzz input shapes.
#include "fuzz/reply_script.hpp"

#include <cstring>
#include <string>

#include "tests/device/fake_firmware.hpp"

namespace
{

constexpr unsigned kMaxCalls = 64; // a firmware may dribble; the run need not follow it far

ReplyScript g_script;

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
    ReplyScript &s = g_script;
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

} // namespace

const ReplyScript &reply_script_start(FuzzBytes script)
{
    FakeFirmware &fw = fake_firmware();
    fw.reset();
    fw.answer = answer;
    g_script = ReplyScript{};
    g_script.in = script;
    return g_script;
}
