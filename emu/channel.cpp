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

/// A caller as the driver tells exchanges apart: (tgid, logical id).
using Key = std::pair<uint32_t, uint32_t>;

/// Exchanges in flight, per caller.
std::map<Key, Exchange> &exchanges()
{
    static std::map<Key, Exchange> map;
    return map;
}

/// Reply records handed to each caller since its current command began.
std::map<Key, uint32_t> &replies_counted()
{
    static std::map<Key, uint32_t> map;
    return map;
}

/// Position of the reply to `req` within its command, from 1: a first (or only) send packet
/// begins a command; every further call, send or fetch, is the next record.
uint32_t count_reply(Key key, const ds_req &req)
{
    uint32_t &n = replies_counted()[key];
    const bool begins = req.direction == KOPA_DIR_SEND &&
                        (req.frag == KOPA_FRAG_WHOLE || req.frag == KOPA_FRAG_FIRST);
    n = begins ? 1 : n + 1;
    return n;
}

void wipe(std::vector<uint8_t> &bytes)
{
    if (!bytes.empty())
        explicit_bzero(bytes.data(), bytes.size());
    bytes.clear();
}

void forget(Key key)
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
void fetch(const ds_req &req, Key key, ds_rsp &rsp)
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

/// Overwrites the payload with pseudo-random bytes, never zero (so a text loses its
/// terminator), the same ones for the same opcode and piece.
void garble(ds_rsp &rsp, uint32_t opcode, uint32_t piece)
{
    uint32_t x = (opcode * 2654435761u) ^ (piece * 40503u) ^ 0x9E3779B9u;
    if (x == 0)
        x = 1; // the one seed xorshift cannot leave
    const uint32_t len = std::min(rsp.data_len, KOPA_PKT_PAYLOAD);
    for (uint32_t i = 0; i < len; ++i) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        const auto b = static_cast<uint8_t>(x >> 24);
        rsp.info[i] = b != 0 ? b : 0xFF;
    }
}

/// Reshapes a reply the firmware built as the faults that hit it ask; returns *rsp_len.
uint32_t reshape(const FaultHits &hits, Key key, uint32_t opcode, uint32_t piece, ds_rsp &rsp)
{
    if (const auto &result = hits[FaultKind::kResult]) {
        forget(key); // a refusal ends the exchange, whatever the firmware had pending
        refuse(rsp, static_cast<int32_t>(*result));
    }
    if (const auto &keep = hits[FaultKind::kShort]; keep && *keep < rsp.data_len) {
        const auto n = static_cast<uint32_t>(*keep);
        memset(rsp.info + n, 0, std::min(rsp.data_len, KOPA_PKT_PAYLOAD) - n);
        rsp.data_len = n;
    }
    if (hits[FaultKind::kGarble])
        garble(rsp, opcode, piece);
    if (const auto &frag = hits[FaultKind::kFrag])
        rsp.frag = static_cast<uint32_t>(*frag);
    if (const auto &len = hits[FaultKind::kDataLen])
        rsp.data_len = static_cast<uint32_t>(*len);
    const auto &len = hits[FaultKind::kRspLen];
    return len ? static_cast<uint32_t>(*len) : KOPA_RSP_SIZE;
}

/// Answers one well-formed request packet of a present device into `rsp`; returns true when
/// the command ran on it (the reply carries its answer).
bool answer_packet(Session &session, uint32_t logic_id, const ds_req &req, ds_rsp &rsp)
{
    const Key key{req.tgid, logic_id};
    if (req.direction == KOPA_DIR_FETCH) {
        fetch(req, key, rsp);
        return false;
    }
    if (req.direction != KOPA_DIR_SEND || req.copy_size > KOPA_PKT_PAYLOAD) {
        forget(key);
        refuse(rsp, kInval);
        return false;
    }
    if (req.frag == KOPA_FRAG_WHOLE || req.frag == KOPA_FRAG_FIRST)
        forget(key); // a new command abandons whatever this caller left unfinished

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
        if (!run(session, logic_id, req.client_pid, ex, rsp))
            forget(key);
        return true;
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
        return false;
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
            return false;
        }
        if (!run(session, logic_id, req.client_pid, ex, rsp))
            forget(key);
        return true;
    }
    default:
        break;
    }
    forget(key);
    refuse(rsp, kInval);
    return false;
}

} // namespace

void reset_channel()
{
    auto &map = exchanges();
    while (!map.empty())
        forget(map.begin()->first);
    replies_counted().clear();
}

CallAnswer answer_call(Session &session, uint32_t logic_id, const ds_req &req, bool well_formed,
                       ds_rsp &rsp)
{
    rsp = ds_rsp{};
    const Key key{req.tgid, logic_id};
    // A call the library turns away is no reply record of any command: piece 0.
    const bool valid = well_formed && session.check_device(logic_id) == 0;
    FaultSite site{kChannelCall, req.opcode, valid ? count_reply(key, req) : 0, false,
                   FaultStage::kBefore};

    const FaultHits before = session.take_faults(site);
    if (const auto &ms = before[FaultKind::kDelay])
        (void)session.sleep_unlocked(static_cast<uint32_t>(*ms));
    if (const auto &ret = before[FaultKind::kFunction])
        return {static_cast<int>(*ret), KOPA_RSP_SIZE, false};
    if (!well_formed)
        return {kInval, KOPA_RSP_SIZE, false};
    if (int rc = session.check_device(logic_id); rc != 0)
        return {rc, KOPA_RSP_SIZE, false};
    if (const auto &result = before[FaultKind::kResult]) {
        forget(key); // refused unseen: a long send stops here, nothing runs
        refuse(rsp, static_cast<int32_t>(*result));
        return {0, KOPA_RSP_SIZE, true};
    }

    site.answer = answer_packet(session, logic_id, req, rsp);
    site.stage = FaultStage::kAfter;
    const FaultHits after = session.take_faults(site);
    const uint32_t rsp_len = reshape(after, key, req.opcode, site.piece, rsp);
    if (const auto &ms = after[FaultKind::kDelay])
        (void)session.sleep_unlocked(static_cast<uint32_t>(*ms));
    const auto &ret = after[FaultKind::kFunction];
    return {ret ? static_cast<int>(*ret) : 0, rsp_len, true};
}

} // namespace kopa_emu
