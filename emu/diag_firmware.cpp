// The diagnostics and statistics operations of the emulated firmware.
#include "emu/diag_firmware.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

#include "emu/diag_state.hpp"

namespace kopa_emu
{
namespace
{

constexpr int32_t kOk = 0;
constexpr int32_t kInval = -22;
constexpr int32_t kBusy = -16;
constexpr uint32_t kDefaultSpeed = 200000; ///< Mbit/s of a port without a static speed
constexpr uint32_t kEthRegs = 64;          ///< registers in the dump, offsets 0x00 .. 0xfc
constexpr uint32_t kRegSpace = 0x10000;    ///< bytes of the register space
constexpr uint32_t kPingMaxSize = 65507;
constexpr uint32_t kTtl = 64;
constexpr uint32_t kLoopbackRttUs = 20;
constexpr uint32_t kPerftestMsgSize = 65536;
constexpr uint32_t kPerftestBaseBw = 185000; ///< Mbit/s of a sample to a reachable peer
constexpr uint32_t kCdrLanes = 4;

template <typename T> void put(std::vector<uint8_t> &reply, const T &record)
{
    const auto *p = reinterpret_cast<const uint8_t *>(&record);
    reply.assign(p, p + sizeof record);
}

/// The request record of a command, or false when the payload is not exactly one record.
template <typename T> bool request(const Command &cmd, T &out)
{
    if (cmd.size_in != sizeof(T) || cmd.in == nullptr)
        return false;
    memcpy(&out, cmd.in, sizeof(T));
    return true;
}

uint32_t port_speed(const DeviceState &d)
{
    if (d.link == 0)
        return 0;
    return d.static_speed != 0 ? d.static_speed : kDefaultSpeed;
}

/// The priorities that run PFC, as the last -pfc set stored them.
uint8_t pfc_bitmap(const DeviceState &d)
{
    for (const GenericSlot &slot : d.generic) {
        if (slot.opcode == KOPA_OP_get_pfc_enabled && slot.len != 0)
            return slot.data[0];
    }
    return 0;
}

/// What a counter growing at `milli_per_s` thousandths per second counted over `up_ns`.
uint64_t grown(uint64_t milli_per_s, uint64_t up_ns)
{
    const unsigned __int128 total = static_cast<unsigned __int128>(milli_per_s) * up_ns;
    return static_cast<uint64_t>(total / 1000000000000ull);
}

/// The counters of a port carrying about 20 Gbit/s in and 15 Gbit/s out while its link is up.
kopa_netdev_stat counters(const DeviceState &d)
{
    const uint64_t up = d.stat_up_ns;
    const auto per = [up](uint64_t milli_per_s) { return grown(milli_per_s, up); };
    kopa_netdev_stat s{};
    s.rx_unicast = per(2500000000);
    s.rx_multicast = per(1000000);
    s.rx_broadcast = per(100000);
    s.tx_unicast = per(1875000000);
    s.tx_multicast = per(500000);
    s.tx_broadcast = per(50000);
    s.rx_packets = s.rx_unicast + s.rx_multicast + s.rx_broadcast;
    s.tx_packets = s.tx_unicast + s.tx_multicast + s.tx_broadcast;
    s.rx_bytes = s.rx_unicast * 1000 + s.rx_multicast * 256 + s.rx_broadcast * 64;
    s.tx_bytes = s.tx_unicast * 1000 + s.tx_multicast * 256 + s.tx_broadcast * 64;
    s.rx_crc_errors = per(20);
    s.rx_fragments = per(10);
    s.rx_errors = s.rx_crc_errors + s.rx_fragments;
    s.rx_dropped = per(50);
    s.rx_fec_corrected = per(150000000);
    s.rx_symbol_errors = per(5);
    uint64_t *rx_pfc = &s.rx_pfc_prio0;
    uint64_t *tx_pfc = &s.tx_pfc_prio0;
    const uint8_t pfc = pfc_bitmap(d);
    for (uint32_t prio = 0; prio < 8; ++prio) {
        if ((pfc >> prio & 1U) != 0) {
            rx_pfc[prio] = per(25000);
            tx_pfc[prio] = per(12000);
        }
    }
    s.roce_rx_packets = s.rx_unicast / 10 * 9;
    s.roce_tx_packets = s.tx_unicast / 10 * 9;
    s.roce_rx_cnp = per(200000);
    s.roce_tx_cnp = per(150000);
    return s;
}

bool beyond(uint16_t value, const kopa_optical_limits &l)
{
    return value > l.high_alarm || value < l.low_alarm;
}

/// A module that is absent or reads beyond an alarm threshold fails the self-check.
bool optical_fails(const kopa_optical_info &o)
{
    if (o.present == 0)
        return true;
    if (o.temperature > o.temperature_limits.high_alarm ||
        o.temperature < o.temperature_limits.low_alarm || beyond(o.voltage, o.voltage_limits))
        return true;
    for (uint32_t i = 0; i < std::min<uint32_t>(o.lanes, KOPA_OPTICAL_LANES); ++i) {
        if (beyond(o.bias[i], o.bias_limits) || beyond(o.tx_power[i], o.tx_power_limits) ||
            beyond(o.rx_power[i], o.rx_power_limits))
            return true;
    }
    return false;
}

kopa_eth_test_info self_check(const DeviceState &d, uint8_t type)
{
    const bool link = d.link != 0;
    // register, mac loopback, serdes loopback, link, optical module, pcs
    const uint32_t verdict[KOPA_ETH_TEST_ITEMS] = {
        0, 0, 0, link ? 0u : 1u, optical_fails(d.optical) ? 1u : 0u, link ? 0u : 1u};
    kopa_eth_test_info info{};
    info.items = type == KOPA_ETH_TEST_ALL ? KOPA_ETH_TEST_ITEMS : 1;
    for (uint32_t i = 0; i < KOPA_ETH_TEST_ITEMS; ++i)
        info.result[i] = type == KOPA_ETH_TEST_ALL || type == i + 1 ? verdict[i] : 2;
    return info;
}

/// The register at `offset` of the Ethernet block: identity, then the port's state, then
/// register-like patterns.
uint32_t eth_register(const DeviceState &d, uint32_t offset)
{
    switch (offset) {
    case 0x00:
        return 0x45540003; // block id and revision
    case 0x04:
        return d.link;
    case 0x08:
        return port_speed(d);
    case 0x0c:
        return d.mtu;
    case 0x10:
        return static_cast<uint32_t>(d.mac[0]) << 24 | d.mac[1] << 16 | d.mac[2] << 8 | d.mac[3];
    case 0x14:
        return static_cast<uint32_t>(d.mac[4]) << 8 | d.mac[5];
    case 0x18:
        return d.fec_mode;
    case 0x1c:
        return d.duplex;
    default:
        return (offset * 0x01000193u) ^ 0x5a5a0000u;
    }
}

kopa_netdev_status netdev_status(const DeviceState &d)
{
    kopa_netdev_status st{};
    st.link = d.link != 0 ? 1 : 0;
    st.speed = port_speed(d);
    st.duplex = d.duplex;
    st.fec_mode = d.fec_mode;
    st.mtu = d.mtu;
    st.autoneg = 0;
    st.link_flaps = d.link_flaps;
    st.last_change = d.link_change;
    return st;
}

kopa_pci_info pci_info(const DeviceState &d, uint32_t logic_id)
{
    kopa_pci_info p{};
    p.bus = static_cast<uint8_t>(0x3d + logic_id * 0x10);
    p.vendor_id = 0x1f0e;
    p.device_id = 0xd802;
    p.subsystem_vendor_id = 0x1f0e;
    p.subsystem_id = 0x0100;
    p.link_speed = static_cast<uint8_t>(d.pci_speed);
    p.link_width = static_cast<uint8_t>(d.pci_width);
    p.max_link_speed = 4;
    p.max_link_width = 16;
    return p;
}

/// Queue pair 1 (the general services QP) and eight connected QPs from 0x100 are in use.
int32_t qp_context(const DeviceState &d, uint32_t qpn, kopa_roce_qp_context &qp)
{
    const bool gsi = qpn == 1;
    if (!gsi && (qpn < 0x100 || qpn > 0x107))
        return KOPA_RESULT_NOENT;
    qp = kopa_roce_qp_context{};
    qp.qpn = qpn;
    qp.state = 3; // RTS
    qp.type = gsi ? 3 : 0;
    qp.dest_qpn = gsi ? 1 : qpn + 0x100;
    qp.dest_ip = gsi || d.peer_count == 0 ? 0 : d.peers[0].ip;
    qp.path_mtu = gsi ? 256 : (d.mtu >= 4200 ? 4096 : 1024);
    qp.sq_psn = (qpn * 2654435761u) & KOPA_QPN_MAX;
    qp.rq_psn = (qpn * 40503u + 7) & KOPA_QPN_MAX;
    qp.sq_depth = gsi ? 128 : 1024;
    qp.rq_depth = gsi ? 128 : 1024;
    qp.sq_head = (qpn * 13) % qp.sq_depth;
    qp.sq_tail = qp.sq_head;
    qp.retry_count = 7;
    qp.rnr_retry = 7;
    qp.traffic_class = 106; // DSCP 26, ECN capable
    qp.priority = 3;
    qp.hop_limit = 64;
    return kOk;
}

int32_t ping(DeviceState &d, const Command &cmd, std::vector<uint8_t> &reply)
{
    kopa_ping_req req{};
    if (!request(cmd, req) || req.size > kPingMaxSize || req.timeout_ms == 0 || req.seq == 0)
        return kInval;
    kopa_ping_reply out{};
    out.status = KOPA_PING_TIMEOUT;
    uint32_t rtt = 0;
    if (d.link == 0) {
        // nothing leaves a port that is down
    } else if (req.dst_ip == d.roce.address && req.dst_ip != 0) {
        out.status = KOPA_PING_REPLY;
        rtt = kLoopbackRttUs;
    } else if (const PingPeer *peer = find_peer(d, req.dst_ip)) {
        // A lossy peer drops the echoes where its loss share crosses a whole echo.
        const bool lost = peer->state == kPeerLossy &&
                          req.seq * peer->loss / 100 != (req.seq - 1) * peer->loss / 100;
        if (peer->state == kPeerUnreachable)
            out.status = KOPA_PING_UNREACHABLE;
        else if (!lost)
            out.status = KOPA_PING_REPLY;
        rtt = peer->rtt_us + (req.seq * 37) % (peer->rtt_us / 5 + 1);
    }
    if (out.status == KOPA_PING_REPLY) {
        out.rtt_us = std::max(rtt, 1u);
        out.ttl = kTtl;
        out.bytes = req.size + 8;
    }
    put(reply, out);
    return kOk;
}

/// Whether the test's peer answers RoCE traffic: reachable or lossy, over a port that is up.
bool peer_answers(DeviceState &d, uint32_t ip)
{
    const PingPeer *peer = find_peer(d, ip);
    return d.link != 0 && peer != nullptr && peer->state != kPeerUnreachable;
}

/// One status query of a running test: a quarter of the iterations and one sample.
void advance_perftest(DeviceState &d)
{
    PerftestState &t = d.perftest;
    if (!peer_answers(d, t.peer_ip)) {
        t.state = KOPA_PERFTEST_FAILED;
        return;
    }
    const PingPeer *peer = find_peer(d, t.peer_ip);
    const uint32_t step = (t.iterations + 3) / 4;
    t.done = std::min(t.done + step, t.iterations);
    ++t.samples;
    // Samples scatter within 4.5 Gbit/s of the base rate.
    uint64_t bw = kPerftestBaseBw + (t.samples * 2654435761u >> 12) % 9001u - 4500u;
    if (peer->state == kPeerLossy)
        bw = bw * (100 - std::min(peer->loss, 99u)) / 100;
    bw = std::min<uint64_t>(bw, port_speed(d) / 100 * 97);
    t.bw_last = static_cast<uint32_t>(bw);
    t.bw_min = t.samples == 1 ? t.bw_last : std::min(t.bw_min, t.bw_last);
    t.bw_max = std::max(t.bw_max, t.bw_last);
    t.bw_sum += t.bw_last;
    if (t.done == t.iterations)
        t.state = KOPA_PERFTEST_DONE;
}

int32_t perftest(DeviceState &d, const Command &cmd, std::vector<uint8_t> &reply, bool &dirty)
{
    PerftestState &t = d.perftest;
    if (cmd.opcode == KOPA_OP_start_roce_perftest) {
        kopa_roce_perftest_req req{};
        if (!request(cmd, req) || req.iterations < KOPA_PERFTEST_ITER_MIN ||
            req.iterations > KOPA_PERFTEST_ITER_MAX)
            return kInval;
        if (t.state == KOPA_PERFTEST_RUNNING)
            return kBusy;
        t = PerftestState{};
        t.state = KOPA_PERFTEST_RUNNING;
        t.peer_ip = req.peer_ip;
        t.iterations = req.iterations;
        dirty = true;
        return kOk;
    }
    kopa_roce_perftest_query query{};
    if (!request(cmd, query))
        return kInval;
    switch (cmd.opcode) {
    case KOPA_OP_get_roce_perftest_status: {
        if (t.state == KOPA_PERFTEST_RUNNING) {
            advance_perftest(d);
            dirty = true;
        }
        kopa_roce_perftest_status st{};
        st.state = static_cast<uint8_t>(t.state);
        st.percent = t.iterations == 0 ? 0 : static_cast<uint8_t>(t.done * 100 / t.iterations);
        st.iterations_done = t.done;
        st.bandwidth = t.bw_last;
        put(reply, st);
        return kOk;
    }
    case KOPA_OP_get_roce_perftest_report: {
        if (t.state == KOPA_PERFTEST_IDLE)
            return KOPA_RESULT_NOENT;
        kopa_roce_perftest_report r{};
        r.state = t.state;
        r.peer_ip = t.peer_ip;
        r.iterations = t.iterations;
        r.iterations_done = t.done;
        r.msg_size = kPerftestMsgSize;
        r.samples = t.samples;
        r.bw_min = t.bw_min;
        r.bw_max = t.bw_max;
        r.bw_avg = t.samples == 0 ? 0 : static_cast<uint32_t>(t.bw_sum / t.samples);
        put(reply, r);
        return kOk;
    }
    default: // stop
        if (t.state != KOPA_PERFTEST_RUNNING)
            return KOPA_RESULT_NOENT;
        t.state = KOPA_PERFTEST_STOPPED;
        dirty = true;
        return kOk;
    }
}

kopa_mac_lane_cdr_info lane_cdr(const DeviceState &d)
{
    kopa_mac_lane_cdr_info info{};
    info.lanes = kCdrLanes;
    for (uint32_t i = 0; i < kCdrLanes; ++i) {
        kopa_cdr_lane_info &l = info.lane[i];
        l.locked = d.link != 0 ? 1 : 0;
        l.loss_of_lock = d.link_flaps;
        l.freq_offset_ppm = static_cast<int32_t>(i * 3 % 7) - 3;
        l.eye_height_mv = d.link != 0 ? 60 + i * 3 : 0;
        l.eye_width_mui = d.link != 0 ? 400 + i * 10 : 0;
        l.snr_centi_db = d.link != 0 ? 2150 + i * 25 : 0;
    }
    return info;
}

int32_t cdr(DeviceState &d, const Command &cmd, std::vector<uint8_t> &reply, bool &dirty)
{
    switch (cmd.opcode) {
    case KOPA_OP_trig_query_cdr_info: {
        constexpr uint32_t kAllLanes = (1U << kCdrLanes) - 1;
        kopa_cdr_trigger trig{};
        if (!request(cmd, trig) || trig.type > KOPA_CDR_TRIG_EXT_LOG ||
            (trig.lane_mask & kAllLanes) == 0)
            return kInval;
        ++d.cdr_captures;
        dirty = true;
        const auto lanes = static_cast<uint32_t>(std::popcount(trig.lane_mask & kAllLanes));
        put(reply, kopa_cdr_trigger_reply{lanes, d.cdr_captures});
        return kOk;
    }
    case KOPA_OP_get_cdr_reg_info: {
        kopa_cdr_reg_block block{};
        if (!request(cmd, block) || block.lane >= kCdrLanes || block.count == 0 ||
            block.count > KOPA_CDR_REGS_MAX)
            return kInval;
        for (uint32_t i = 0; i < block.count; ++i) {
            const uint32_t addr = block.reg[i];
            block.reg[i] =
                ((addr * 0x9e3779b1u) >> 16 ^ block.lane << 12 ^ d.cdr_captures) & 0xffff;
        }
        put(reply, block);
        return kOk;
    }
    default:
        put(reply, lane_cdr(d));
        return kOk;
    }
}

} // namespace

bool is_diag_command(uint32_t opcode)
{
    switch (opcode) {
    case KOPA_OP_get_netdev_stat:
    case KOPA_OP_clear_netdev_stat:
    case KOPA_OP_get_optical_info:
    case KOPA_OP_get_netdev_status:
    case KOPA_OP_get_eth_duplex:
    case KOPA_OP_get_pci_info:
    case KOPA_OP_get_device_process:
    case KOPA_OP_get_eth_reg_info:
    case KOPA_OP_get_network_register:
    case KOPA_OP_get_ssu_reg:
    case KOPA_OP_get_eth_test_info:
    case KOPA_OP_get_roce_context:
    case KOPA_OP_ping_fun:
    case KOPA_OP_start_roce_perftest:
    case KOPA_OP_get_roce_perftest_status:
    case KOPA_OP_get_roce_perftest_report:
    case KOPA_OP_stop_roce_perftest:
    case KOPA_OP_trig_query_cdr_info:
    case KOPA_OP_get_cdr_reg_info:
    case KOPA_OP_query_mac_lane_cdr_info:
        return true;
    default:
        return false;
    }
}

int32_t run_diag_command(const Command &cmd, DeviceState &dev, std::vector<uint8_t> &reply,
                         bool &dirty)
{
    switch (cmd.opcode) {
    case KOPA_OP_get_netdev_stat:
        advance_stats(dev);
        dirty = true;
        put(reply, counters(dev));
        return kOk;
    case KOPA_OP_clear_netdev_stat:
        advance_stats(dev);
        dev.stat_up_ns = 0;
        dev.stats_cleared = 1;
        dirty = true;
        return kOk;
    case KOPA_OP_get_optical_info:
        put(reply, dev.optical);
        return kOk;
    case KOPA_OP_get_netdev_status:
        put(reply, netdev_status(dev));
        return kOk;
    case KOPA_OP_get_eth_duplex:
        put(reply, kopa_u32_value{dev.duplex});
        return kOk;
    case KOPA_OP_get_pci_info:
        put(reply, pci_info(dev, cmd.logic_id));
        return kOk;
    case KOPA_OP_get_device_process: {
        const uint32_t n = std::min(dev.process_count, kMaxProcesses);
        const auto *p = reinterpret_cast<const uint8_t *>(dev.processes);
        reply.assign(p, p + n * sizeof(kopa_process_record));
        return kOk;
    }
    case KOPA_OP_get_eth_reg_info: {
        kopa_reg_record regs[kEthRegs];
        for (uint32_t i = 0; i < kEthRegs; ++i)
            regs[i] = {i * 4, eth_register(dev, i * 4)};
        put(reply, regs);
        return kOk;
    }
    case KOPA_OP_get_network_register: {
        uint32_t offset = 0;
        if (!request(cmd, offset) || offset % 4 != 0 || offset >= kRegSpace)
            return kInval;
        put(reply, eth_register(dev, offset));
        return kOk;
    }
    case KOPA_OP_get_ssu_reg: {
        advance_stats(dev);
        dirty = true;
        const kopa_netdev_stat s = counters(dev);
        kopa_backpressure_info bp{};
        bp.prio_paused = dev.link != 0 ? pfc_bitmap(dev) : 0;
        const uint64_t *rx_pfc = &s.rx_pfc_prio0;
        for (uint32_t prio = 0; prio < 8; ++prio)
            bp.prio_pause_frames[prio] = rx_pfc[prio];
        put(reply, bp);
        return kOk;
    }
    case KOPA_OP_get_eth_test_info: {
        uint8_t type = 0;
        if (!request(cmd, type) || type > KOPA_ETH_TEST_ITEMS)
            return kInval;
        put(reply, self_check(dev, type));
        return kOk;
    }
    case KOPA_OP_get_roce_context: {
        kopa_roce_context_query query{};
        if (!request(cmd, query) || query.qpn > KOPA_QPN_MAX)
            return kInval;
        kopa_roce_qp_context qp{};
        const int32_t rc = qp_context(dev, query.qpn, qp);
        if (rc == kOk)
            put(reply, qp);
        return rc;
    }
    case KOPA_OP_ping_fun:
        return ping(dev, cmd, reply);
    case KOPA_OP_trig_query_cdr_info:
    case KOPA_OP_get_cdr_reg_info:
    case KOPA_OP_query_mac_lane_cdr_info:
        return cdr(dev, cmd, reply, dirty);
    default:
        return perftest(dev, cmd, reply, dirty);
    }
}

} // namespace kopa_emu
