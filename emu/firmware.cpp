// The emulated firmware's operations: gateway, routes, MAC, link, MTU, RoCE port, TLS and the
// stored or synthetic answers of the remaining operations.
#include "emu/firmware.hpp"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "emu/diag_firmware.hpp"
#include "emu/diag_state.hpp"
#include "emu/op_table.hpp"
#include "emu/port_state.hpp"
#include "emu/tls_envelope.hpp"

namespace kopa_emu
{
namespace
{

constexpr int32_t kOk = 0;
constexpr int32_t kInval = -22;

template <typename T> T load(const uint8_t *in)
{
    T value{};
    memcpy(&value, in, sizeof value);
    return value;
}

template <typename T> void put(std::vector<uint8_t> &reply, const T &record)
{
    const auto *p = reinterpret_cast<const uint8_t *>(&record);
    reply.assign(p, p + sizeof record);
}

void put_text(std::vector<uint8_t> &reply, const std::string &text)
{
    reply.assign(text.begin(), text.end());
    reply.push_back(0);
}

std::string ipv4_text(uint32_t be)
{
    char buf[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &be, buf, sizeof buf);
    return buf;
}

/// The slot holding what a set stored for `get_opcode`; created (zeroed) when `create`.
GenericSlot *find_slot(DeviceState &dev, uint32_t get_opcode, bool create)
{
    GenericSlot *free_slot = nullptr;
    for (GenericSlot &slot : dev.generic) {
        if (slot.opcode == get_opcode)
            return &slot;
        if (slot.opcode == 0 && free_slot == nullptr)
            free_slot = &slot;
    }
    if (!create || free_slot == nullptr)
        return nullptr;
    *free_slot = GenericSlot{};
    free_slot->opcode = get_opcode;
    return free_slot;
}

/// Stores a set's payload for the get that returns it.
int32_t store(DeviceState &dev, uint32_t get_opcode, const Command &cmd)
{
    GenericSlot *slot = find_slot(dev, get_opcode, true);
    if (slot == nullptr)
        return -28; // no room: as a full flash partition would answer
    uint32_t len = std::min(cmd.size_in, kGenericMax);
    *slot = GenericSlot{};
    slot->opcode = get_opcode;
    slot->len = len;
    if (len != 0)
        memcpy(slot->data, cmd.in, len);
    return kOk;
}

/// Plausible register-like bytes for a query nothing sets.
void synthetic(std::vector<uint8_t> &reply, const Command &cmd, uint32_t size)
{
    reply.resize(size);
    for (uint32_t i = 0; i < size; ++i) {
        reply[i] = static_cast<uint8_t>((i * 7u + cmd.opcode + cmd.logic_id * 13u) & 0xFF);
    }
}

/// A get answered from its slot, or from `fallback` when nothing was set.
void stored_or(std::vector<uint8_t> &reply, DeviceState &dev, const Command &cmd, uint32_t size,
               const std::vector<uint8_t> &fallback)
{
    reply = fallback;
    reply.resize(size);
    if (const GenericSlot *slot = find_slot(dev, cmd.opcode, false)) {
        std::fill(reply.begin(), reply.end(), 0);
        memcpy(reply.data(), slot->data, std::min(slot->len, size));
    }
}

/// Reserved MAC addresses the firmware refuses, as the host side refuses them. The broadcast
/// address is not among them: the host compares its reserved texts case-sensitively and lets a
/// mixed-case broadcast text through on purpose, so the firmware takes what it is sent.
bool mac_reserved(const uint8_t *mac)
{
    static const uint8_t kReserved[][6] = {
        {0x09, 0x00, 0x2B, 0x00, 0x00, 0x04}, {0x09, 0x00, 0x2B, 0x00, 0x00, 0x05},
        {0x03, 0x00, 0x00, 0x00, 0x00, 0x08}, {0x03, 0x00, 0x00, 0x00, 0x00, 0x10},
        {0x03, 0x00, 0x00, 0x00, 0x00, 0x40}, {0x03, 0x00, 0x00, 0x00, 0x01, 0x00},
        {0x03, 0x00, 0x00, 0x00, 0x02, 0x00}, {0x03, 0x00, 0x00, 0x00, 0x04, 0x00},
        {0x03, 0x00, 0x00, 0x00, 0x08, 0x00}, {0x03, 0x00, 0x00, 0x00, 0x10, 0x00},
        {0x03, 0x00, 0x00, 0x00, 0x20, 0x00}, {0x03, 0x00, 0x00, 0x00, 0x40, 0x00},
        {0x03, 0x00, 0x00, 0x40, 0x00, 0x00}, {0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
    };
    if (mac[0] == 0x01 && mac[1] == 0x80 && mac[2] == 0xC2)
        return true;
    if ((mac[0] & 0x0F) == 0x01)
        return true;
    for (const auto &r : kReserved) {
        if (memcmp(r, mac, 6) == 0)
            return true;
    }
    return false;
}

std::string route_table_text(const DeviceState &dev)
{
    if (dev.route_count == 0)
        return "Route table is empty.\n";
    std::string text = "Destination     Netmask         Gateway\n";
    for (uint32_t i = 0; i < dev.route_count; ++i) {
        const kopa_route_record &r = dev.routes[i];
        char line[64];
        snprintf(line, sizeof line, "%-16s%-16s%s\n", ipv4_text(r.destination).c_str(),
                 ipv4_text(r.netmask).c_str(), ipv4_text(r.gateway).c_str());
        text += line;
    }
    return text;
}

int32_t add_route(DeviceState &dev, const kopa_route_record &route)
{
    for (uint32_t i = 0; i < dev.route_count; ++i) {
        kopa_route_record &r = dev.routes[i];
        if (r.destination == route.destination && r.netmask == route.netmask) {
            r.gateway = route.gateway;
            return kOk;
        }
    }
    if (dev.route_count >= kMaxRoutes)
        return KOPA_RESULT_ROUTE_FULL;
    dev.routes[dev.route_count++] = route;
    return kOk;
}

int32_t del_route(DeviceState &dev, const kopa_route_record &route)
{
    for (uint32_t i = 0; i < dev.route_count; ++i) {
        const kopa_route_record &r = dev.routes[i];
        if (r.destination == route.destination && r.netmask == route.netmask) {
            std::copy(dev.routes + i + 1, dev.routes + dev.route_count, dev.routes + i);
            dev.routes[--dev.route_count] = kopa_route_record{};
            return kOk;
        }
    }
    return KOPA_RESULT_NOENT;
}

int32_t set_gateway(Session &s, uint32_t logic_id, DeviceState &dev, uint32_t gateway)
{
    uint64_t newest = 0;
    for (uint32_t peer : s.group_of(logic_id)) {
        if (const DeviceState *d = s.device(peer))
            newest = std::max(newest, d->gateway_seq);
    }
    dev.has_gateway = 1;
    dev.gateway = gateway;
    dev.gateway_seq = newest + 1;
    return kOk;
}

int32_t get_gateway(Session &s, uint32_t logic_id, std::vector<uint8_t> &reply)
{
    const DeviceState *holder = nullptr;
    uint32_t holder_id = 0;
    for (uint32_t peer : s.group_of(logic_id)) {
        const DeviceState *d = s.device(peer);
        if (d != nullptr && d->has_gateway &&
            (holder == nullptr || d->gateway_seq > holder->gateway_seq)) {
            holder = d;
            holder_id = peer;
        }
    }
    if (holder == nullptr)
        return KOPA_RESULT_NOENT;
    kopa_gateway_record rec{s.host().dev[holder_id].phy_id, holder->gateway, 0};
    put(reply, rec);
    return kOk;
}

void tls_cert_info(const DeviceState &dev, const Command &cmd, std::vector<uint8_t> &reply)
{
    uint32_t n = std::min<uint32_t>(dev.cert_count, cmd.size_out / sizeof(kopa_tls_cert_info));
    const auto *p = reinterpret_cast<const uint8_t *>(dev.certs);
    reply.assign(p, p + n * sizeof(kopa_tls_cert_info));
}

/// The traffic classes as the last set left them (tc0 takes all the bandwidth until then), each
/// with a buffer of 64 KiB.
kopa_tc_cfg_info tc_cfg_info(DeviceState &dev)
{
    kopa_tc_cfg_info info{};
    for (uint32_t i = 0; i < 8; ++i) {
        info.tc_bw[i] = i == 0 ? 100 : 0;
        info.tc_buf[i] = 65536;
    }
    if (const GenericSlot *slot = find_slot(dev, KOPA_OP_get_tc_cfg, false)) {
        memcpy(&info, slot->data, std::min<uint32_t>(slot->len, sizeof(kopa_tc_cfg_set)));
    }
    return info;
}

std::string synthetic_text(const Command &cmd, const std::string &name)
{
    char text[160];
    snprintf(text, sizeof text, "%s of device %u: ok\n", name.c_str(), cmd.logic_id);
    return text;
}

int32_t dispatch(Session &s, const Command &cmd, DeviceState &dev, std::vector<uint8_t> &reply,
                 bool &dirty)
{
    const uint8_t *in = cmd.in;
    const auto sets = [&dirty](int32_t rc) {
        if (rc == kOk)
            dirty = true;
        return rc;
    };
    // ARP table, policy rules and routes, generic settings, FEC and gratuitous ARP
    // (emu/port_state.cpp).
    if (is_port_state_command(cmd.opcode))
        return run_port_state_command(cmd, dev, reply, dirty);
    // Counters, optical module, status, ping, the RoCE test, registers (emu/diag_firmware.cpp).
    if (is_diag_command(cmd.opcode))
        return run_diag_command(cmd, dev, reply, dirty);
    switch (cmd.opcode) {
    case KOPA_OP_set_net_detect_ip_address:
        dev.netdetect = load<uint32_t>(in);
        return sets(kOk);
    case KOPA_OP_get_net_detect_ip_address:
        put(reply, dev.netdetect);
        return kOk;
    case KOPA_OP_set_default_gateway_address:
        return sets(set_gateway(s, cmd.logic_id, dev, load<kopa_gateway_record>(in).gateway));
    case KOPA_OP_del_default_gateway_address:
        // Removing a gateway the device does not hold succeeds without change, so moving a
        // gateway (set on the new device, then delete on the old) never fails halfway.
        if (dev.has_gateway && dev.gateway == load<kopa_gateway_record>(in).gateway) {
            dev.has_gateway = 0;
            dev.gateway = 0;
            dev.gateway_seq = 0;
            dirty = true;
        }
        return kOk;
    case KOPA_OP_get_default_gateway_address:
        return get_gateway(s, cmd.logic_id, reply);
    case KOPA_OP_lldp_get_neighbor_info:
        put_text(reply, dev.lldp);
        return kOk;
    case KOPA_OP_get_mac_address:
        reply.assign(dev.mac, dev.mac + 6);
        return kOk;
    case KOPA_OP_set_mac_address:
        if (mac_reserved(in))
            return kInval;
        memcpy(dev.mac, in, 6);
        return sets(kOk);
    case KOPA_OP_set_netdev_link: {
        const uint32_t up = load<kopa_link_set_record>(in).state != 0 ? 1 : 0;
        note_link_change(dev, up);
        dev.link = up;
        return sets(kOk);
    }
    case KOPA_OP_get_netdev_link:
        put(reply, dev.link);
        return kOk;
    case KOPA_OP_set_mtu: {
        uint32_t mtu = load<kopa_mtu_record>(in).mtu;
        if (mtu < 68 || mtu > 9702)
            return kInval;
        dev.mtu = mtu;
        return sets(kOk);
    }
    case KOPA_OP_get_mtu:
        put(reply, kopa_mtu_record{0, dev.mtu});
        return kOk;
    case KOPA_OP_set_dscp_map: {
        auto rec = load<kopa_dscp_map_set>(in);
        if (rec.dscp >= 64 || rec.tc >= 8)
            return kInval;
        GenericSlot *slot = find_slot(dev, KOPA_OP_get_dscp_map, false);
        if (slot == nullptr) {
            slot = find_slot(dev, KOPA_OP_get_dscp_map, true);
            if (slot == nullptr)
                return -28;
            slot->len = 64;
            for (uint32_t i = 0; i < 64; ++i)
                slot->data[i] = static_cast<uint8_t>(i / 8);
        }
        slot->data[rec.dscp] = rec.tc;
        return sets(kOk);
    }
    case KOPA_OP_get_dscp_map: {
        std::vector<uint8_t> map(64);
        for (uint32_t i = 0; i < 64; ++i)
            map[i] = static_cast<uint8_t>(i / 8);
        stored_or(reply, dev, cmd, 64, map);
        return kOk;
    }
    case KOPA_OP_set_port_shaping:
        return sets(store(dev, KOPA_OP_get_port_shaping, cmd));
    case KOPA_OP_get_port_shaping: {
        kopa_shaping_info info{100000, 100000, {}};
        if (const GenericSlot *slot = find_slot(dev, cmd.opcode, false)) {
            memcpy(&info.bw_limit, slot->data, sizeof info.bw_limit);
        }
        put(reply, info);
        return kOk;
    }
    case KOPA_OP_get_route_table:
        put_text(reply, route_table_text(dev));
        return kOk;
    case KOPA_OP_add_route_table:
        return sets(add_route(dev, load<kopa_route_record>(in)));
    case KOPA_OP_del_route_table:
        return sets(del_route(dev, load<kopa_route_record>(in)));
    case KOPA_OP_get_tls_cfg:
        if (dev.cert_count == 0)
            return KOPA_RESULT_NOENT;
        tls_cert_info(dev, cmd, reply);
        return kOk;
    case KOPA_OP_set_tls_cfg:
        return sets(install_tls_cfg(s.dir(), cmd.logic_id, in, dev));
    case KOPA_OP_clear_tls_cfg:
        dev.cert_count = 0;
        dev.tls_switch = 0;
        memset(dev.certs, 0, sizeof dev.certs);
        return sets(kOk);
    case KOPA_OP_set_tls_enable:
    case KOPA_OP_set_tls_alarm: {
        if (dev.cert_count == 0)
            return KOPA_RESULT_NOENT;
        uint32_t value = load<kopa_port_value_record>(in).value;
        const bool enable = cmd.opcode == KOPA_OP_set_tls_enable;
        if (enable ? value > 1 : (value < 7 || value > 180))
            return kInval;
        (enable ? dev.tls_switch : dev.tls_alarm_days) = value;
        for (uint32_t i = 0; i < dev.cert_count; ++i) {
            (enable ? dev.certs[i].tls_switch : dev.certs[i].alarm_days) = value;
        }
        return sets(kOk);
    }
    case KOPA_OP_get_firmware_version:
        put_text(reply, dev.firmware);
        return kOk;
    case KOPA_OP_get_vnic_status:
        put(reply, dev.vnic_link);
        return kOk;
    case KOPA_OP_get_tls_digital_envelope_pub_ky: {
        kopa_envelope_pub_key key{};
        int32_t rc = envelope_public_key(s.dir(), cmd.logic_id, key);
        if (rc == kOk)
            put(reply, key);
        return rc;
    }
    case KOPA_OP_set_roce_port: {
        uint32_t port = load<kopa_roce_port_record>(in).udp_port;
        if (port < 4097 || port > 65535)
            return kInval;
        dev.udp_port = port;
        return sets(kOk);
    }
    case KOPA_OP_get_roce_port:
        put(reply, kopa_roce_port_record{0, dev.udp_port});
        return kOk;
    case KOPA_OP_set_cfg_status:
        dev.cfg_status = load<kopa_cfg_status_record>(in).status;
        return sets(kOk);
    case KOPA_OP_get_cfg_status:
        put(reply,
            kopa_cfg_status_record{load<kopa_cfg_status_record>(in).port_id, dev.cfg_status});
        return kOk;
    case KOPA_OP_get_eth_speed: // a static speed, once set, is the speed of a port that is up
        put(reply,
            kopa_u32_value{dev.link ? (dev.static_speed != 0 ? dev.static_speed : 200000u) : 0u});
        return kOk;
    case KOPA_OP_set_pfc_enabled:
        return sets(store(dev, KOPA_OP_get_pfc_enabled, cmd));
    case KOPA_OP_get_pfc_enabled:
        stored_or(reply, dev, cmd, sizeof(kopa_pfc_info), {});
        return kOk;
    case KOPA_OP_set_tc_cfg:
        return sets(store(dev, KOPA_OP_get_tc_cfg, cmd));
    case KOPA_OP_get_tc_cfg:
        put(reply, tc_cfg_info(dev));
        return kOk;
    case KOPA_OP_get_current_tc_used: {
        const uint32_t tc = load<uint32_t>(in);
        if (tc >= 8)
            return kInval;
        // The peak use of a class grows with its share: half of its buffer at a full share.
        const kopa_tc_cfg_info info = tc_cfg_info(dev);
        const uint64_t share = std::min(info.tc_bw[tc], 100u);
        put(reply, kopa_u32_value{static_cast<uint32_t>(info.tc_buf[tc] * share / 200)});
        return kOk;
    }
    case KOPA_OP_set_prio_tc_info:
        return sets(store(dev, KOPA_OP_get_prio_tc_info, cmd));
    case KOPA_OP_get_prio_tc_info:
        stored_or(reply, dev, cmd, std::min<uint32_t>(cmd.size_out, sizeof(kopa_prio_tc_info)),
                  {0, 1, 2, 3, 4, 5, 6, 7});
        return kOk;
    case KOPA_OP_clear_link_his_stat:
        return kOk;
    default:
        break;
    }
    // Everything else is a query without state: synthetic text for caller-sized answers,
    // register-like bytes for fixed ones.
    const OpInfo *op = find_op(cmd.opcode);
    if (op == nullptr)
        return kInval;
    if (op->size_out == KOPA_SIZE_CALLER || op->size_out == KOPA_PKT_PAYLOAD) {
        put_text(reply, synthetic_text(cmd, std::string(op->name)));
    } else {
        synthetic(reply, cmd, op->size_out);
    }
    return kOk;
}

} // namespace

int32_t execute_command(Session &session, const Command &cmd, std::vector<uint8_t> &reply)
{
    reply.clear();
    DeviceState *dev = session.device(cmd.logic_id);
    if (dev == nullptr)
        return -19;
    const OpInfo *op = find_op(cmd.opcode);
    if (op == nullptr)
        return kInval;
    // A fixed-size request must arrive whole; the records are read without further checks.
    if (op->size_in != KOPA_SIZE_CALLER && cmd.size_in != op->size_in)
        return kInval;
    if (op->size_in != 0 && op->size_in != KOPA_SIZE_CALLER && cmd.in == nullptr)
        return kInval;

    bool dirty = false;
    int32_t rc = dispatch(session, cmd, *dev, reply, dirty);
    if (dirty)
        session.mark_device_dirty(cmd.logic_id);
    if (rc != kOk) {
        reply.clear();
        return rc;
    }
    if (reply.size() > cmd.size_out) {
        const bool text = !reply.empty() && reply.back() == 0 &&
                          (op->size_out == KOPA_SIZE_CALLER || op->size_out == KOPA_PKT_PAYLOAD);
        reply.resize(cmd.size_out);
        if (text && !reply.empty())
            reply.back() = 0; // a cut text stays zero-terminated
    }
    return kOk;
}

} // namespace kopa_emu
