// The firmware side of the transmission channel: joining request packets, cutting reply pieces.
#include "emu/channel.hpp"

#include <algorithm>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

#include "emu/firmware.hpp"

namespace kopa_emu
{
namespace
{

constexpr int32_t kInval = -22;
/// Largest request the firmware joins; the TLS record (58040 bytes) is the largest real one.
constexpr uint32_t kMaxRequest = 1u << 20;

/// A command whose packets are still arriving, or whose reply is still being fetched.
struct Exchange {
    uint32_t opcode = 0;
    uint32_t size_in = 0;
    uint32_t size_out = 0;
    std::vector<uint8_t> request; ///< joined payload
    std::vector<uint8_t> reply;   ///< whole reply, handed out in pieces
    uint32_t reply_offset = 0;    ///< bytes of `reply` already handed out
    uint32_t last_frag = 0;       ///< frag of the piece handed out last
};

/// Exchanges in flight, keyed by (tgid, logical id) as the driver associates them.
std::map<std::pair<uint32_t, uint32_t>, Exchange> &exchanges()
{
    static std::map<std::pair<uint32_t, uint32_t>, Exchange> map;
    return map;
}

void wipe(std::vector<uint8_t> &bytes)
{
    if (!bytes.empty())
        explicit_bzero(bytes.data(), bytes.size());
    bytes.clear();
}

void forget(std::pair<uint32_t, uint32_t> key)
{
    auto &map = exchanges();
    auto it = map.find(key);
    if (it == map.end())
        return;
    wipe(it->second.request);
    wipe(it->second.reply);
    map.erase(it);
}

void refuse(ds_rsp &rsp, int32_t result)
{
    rsp.result = result;
    rsp.frag = KOPA_FRAG_WHOLE;
    rsp.data_len = 0;
}

/// Hands out the next piece of a pending reply: 2000 bytes with frag 2, the rest with frag 3.
void next_piece(Exchange &ex, ds_rsp &rsp)
{
    const uint32_t left = static_cast<uint32_t>(ex.reply.size()) - ex.reply_offset;
    const uint32_t len = std::min(left, KOPA_PKT_PAYLOAD);
    memcpy(rsp.info, ex.reply.data() + ex.reply_offset, len);
    rsp.result = 0;
    rsp.data_len = len;
    rsp.frag = len == left ? KOPA_FRAG_LAST : KOPA_FRAG_MIDDLE;
    ex.reply_offset += len;
    ex.last_frag = rsp.frag;
}

/// Runs the joined command and puts the first piece of its reply into `rsp`; returns true
/// when more pieces remain to be fetched.
bool run(Session &session, uint32_t logic_id, uint32_t client_pid, Exchange &ex, ds_rsp &rsp)
{
    Command cmd{logic_id,   ex.opcode,   ex.request.empty() ? nullptr : ex.request.data(),
                ex.size_in, ex.size_out, client_pid};
    int32_t result = execute_command(session, cmd, ex.reply);
    wipe(ex.request);
    if (result != 0) {
        refuse(rsp, result);
        return false;
    }
    if (ex.reply.size() <= KOPA_PKT_PAYLOAD) {
        rsp.result = 0;
        rsp.frag = KOPA_FRAG_WHOLE;
        rsp.data_len = static_cast<uint32_t>(ex.reply.size());
        if (!ex.reply.empty())
            memcpy(rsp.info, ex.reply.data(), ex.reply.size());
        return false;
    }
    next_piece(ex, rsp);
    return true;
}

/// A direction-1 request: the caller acknowledges the piece it holds and asks for the next.
void fetch(const ds_req &req, std::pair<uint32_t, uint32_t> key, ds_rsp &rsp)
{
    auto &map = exchanges();
    auto it = map.find(key);
    if (it == map.end() || it->second.reply.empty() || it->second.opcode != req.opcode ||
        req.frag != it->second.last_frag || it->second.last_frag != KOPA_FRAG_MIDDLE) {
        forget(key);
        refuse(rsp, kInval);
        return;
    }
    next_piece(it->second, rsp);
    if (rsp.frag == KOPA_FRAG_LAST)
        forget(key);
}

/// The first reply piece of a command, altered by the channel faults that match its opcode.
uint32_t apply_reply_faults(Session &session, uint32_t opcode, ds_rsp &rsp)
{
    if (auto frag = session.take_fault(FaultKind::kFrag, opcode))
        rsp.frag = static_cast<uint32_t>(*frag);
    if (auto len = session.take_fault(FaultKind::kDataLen, opcode))
        rsp.data_len = static_cast<uint32_t>(*len);
    if (auto len = session.take_fault(FaultKind::kRspLen, opcode))
        return static_cast<uint32_t>(*len);
    return KOPA_RSP_SIZE;
}

} // namespace

void reset_channel()
{
    auto &map = exchanges();
    while (!map.empty())
        forget(map.begin()->first);
}

uint32_t answer_packet(Session &session, uint32_t logic_id, const ds_req &req, ds_rsp &rsp)
{
    const std::pair<uint32_t, uint32_t> key{req.tgid, logic_id};
    rsp = ds_rsp{};
    if (req.direction == KOPA_DIR_FETCH) {
        fetch(req, key, rsp);
        return KOPA_RSP_SIZE;
    }
    if (req.direction != KOPA_DIR_SEND || req.copy_size > KOPA_PKT_PAYLOAD) {
        forget(key);
        refuse(rsp, kInval);
        return KOPA_RSP_SIZE;
    }

    const bool first = req.frag == KOPA_FRAG_WHOLE || req.frag == KOPA_FRAG_FIRST;
    if (first) {
        forget(key); // a new command abandons whatever this caller left unfinished
        if (auto forced = session.take_fault(FaultKind::kResult, req.opcode)) {
            refuse(rsp, static_cast<int32_t>(*forced));
            return KOPA_RSP_SIZE;
        }
    }

    auto &map = exchanges();
    switch (req.frag) {
    case KOPA_FRAG_WHOLE: {
        if (req.size_in > KOPA_PKT_PAYLOAD || req.copy_size != req.size_in)
            break;
        Exchange &ex = map[key];
        ex.opcode = req.opcode;
        ex.size_in = req.size_in;
        ex.size_out = req.size_out;
        ex.request.assign(req.info, req.info + req.copy_size);
        const bool more = run(session, logic_id, req.client_pid, ex, rsp);
        if (!more)
            forget(key);
        return apply_reply_faults(session, req.opcode, rsp);
    }
    case KOPA_FRAG_FIRST: {
        if (req.size_in <= KOPA_PKT_PAYLOAD || req.size_in > kMaxRequest ||
            req.copy_size != KOPA_PKT_PAYLOAD) {
            break;
        }
        Exchange &ex = map[key];
        ex.opcode = req.opcode;
        ex.size_in = req.size_in;
        ex.size_out = req.size_out;
        ex.request.reserve(req.size_in);
        ex.request.assign(req.info, req.info + req.copy_size);
        rsp.result = 0; // intermediate packets are acknowledged without data
        return KOPA_RSP_SIZE;
    }
    case KOPA_FRAG_MIDDLE:
    case KOPA_FRAG_LAST: {
        auto it = map.find(key);
        if (it == map.end())
            break;
        Exchange &ex = it->second;
        const uint32_t have = static_cast<uint32_t>(ex.request.size());
        if (ex.opcode != req.opcode || ex.size_in != req.size_in || ex.size_out != req.size_out ||
            !ex.reply.empty()) {
            break;
        }
        const bool last = req.frag == KOPA_FRAG_LAST;
        const bool fits =
            last ? (req.copy_size != 0 && have + req.copy_size == ex.size_in)
                 : (req.copy_size == KOPA_PKT_PAYLOAD && have + req.copy_size < ex.size_in);
        if (!fits)
            break;
        ex.request.insert(ex.request.end(), req.info, req.info + req.copy_size);
        if (!last) {
            rsp.result = 0;
            return KOPA_RSP_SIZE;
        }
        const bool more = run(session, logic_id, req.client_pid, ex, rsp);
        if (!more)
            forget(key);
        return apply_reply_faults(session, req.opcode, rsp);
    }
    default:
        break;
    }
    forget(key);
    refuse(rsp, kInval);
    return KOPA_RSP_SIZE;
}

} // namespace kopa_emu
