// The ARP table, policy rules and routes, generic settings, FEC mode and gratuitous ARP of the
// emulated firmware.
#include "emu/port_state.hpp"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "emu/op_table.hpp"

namespace kopa_emu
{
namespace
{

constexpr int32_t kOk = 0;
constexpr int32_t kInval = -22;
constexpr uint32_t kMaxPort = 7;
constexpr uint32_t kMaxMaskBits = 32;
constexpr uint32_t kMaxTable = 255;
constexpr uint32_t kGarpPeriodMin = 1;
constexpr uint32_t kGarpPeriodMax = 3600;
constexpr uint32_t kStaticSpeeds[] = {0, 1000, 10000, 25000, 40000, 50000, 100000, 200000};

/// The request record of a command, or false when the payload is not exactly one record.
template <typename T> bool request(const Command &cmd, T &out)
{
    if (cmd.size_in != sizeof(T) || cmd.in == nullptr)
        return false;
    memcpy(&out, cmd.in, sizeof(T));
    return true;
}

template <typename T> void put(std::vector<uint8_t> &reply, const T &record)
{
    const auto *p = reinterpret_cast<const uint8_t *>(&record);
    reply.assign(p, p + sizeof record);
}

/// Adds `entry` to a table of `capacity`, replacing the entry that `same` finds.
template <typename T, typename Same>
int32_t table_add(T *table, uint32_t &count, uint32_t capacity, const T &entry, Same same)
{
    for (uint32_t i = 0; i < count; ++i) {
        if (same(table[i], entry)) {
            table[i] = entry;
            return kOk;
        }
    }
    if (count >= capacity)
        return KOPA_RESULT_ROUTE_FULL;
    table[count++] = entry;
    return kOk;
}

template <typename T, typename Same>
int32_t table_del(T *table, uint32_t &count, const T &entry, Same same)
{
    for (uint32_t i = 0; i < count; ++i) {
        if (same(table[i], entry)) {
            std::copy(table + i + 1, table + count, table + i);
            table[--count] = T{};
            return kOk;
        }
    }
    return KOPA_RESULT_NOENT;
}

/// As many whole records as the caller's buffer holds.
template <typename T>
void table_get(std::vector<uint8_t> &reply, const T *table, uint32_t count, uint32_t size_out)
{
    const uint32_t n = std::min<uint32_t>(count, size_out / sizeof(T));
    const auto *p = reinterpret_cast<const uint8_t *>(table);
    reply.assign(p, p + n * sizeof(T));
}

bool same_arp(const kopa_arp_record &a, const kopa_arp_record &b)
{
    return a.dev == b.dev && a.ip == b.ip;
}

bool same_rule(const kopa_ip_rule_record &a, const kopa_ip_rule_record &b)
{
    return a.dir == b.dir && a.ip == b.ip && a.mask_bits == b.mask_bits && a.table == b.table;
}

bool same_route(const kopa_ip_route_record &a, const kopa_ip_route_record &b)
{
    return a.ip == b.ip && a.mask_bits == b.mask_bits && a.dev == b.dev && a.table == b.table;
}

bool rule_ok(const kopa_ip_rule_record &r)
{
    return r.dir <= 1 && r.mask_bits <= kMaxMaskBits && r.table <= kMaxTable;
}

bool route_ok(const kopa_ip_route_record &r)
{
    return r.mask_bits <= kMaxMaskBits && r.dev <= kMaxPort && r.table <= kMaxTable;
}

int32_t arp_command(const Command &cmd, DeviceState &dev, std::vector<uint8_t> &reply)
{
    if (cmd.opcode == KOPA_OP_get_arp_table) {
        table_get(reply, dev.arp, dev.arp_count, cmd.size_out);
        return kOk;
    }
    kopa_arp_record entry{};
    if (!request(cmd, entry) || entry.dev > kMaxPort)
        return kInval;
    if (cmd.opcode == KOPA_OP_add_arp_entry)
        return table_add(dev.arp, dev.arp_count, KOPA_ARP_MAX, entry, same_arp);
    return table_del(dev.arp, dev.arp_count, entry, same_arp);
}

int32_t rule_command(const Command &cmd, DeviceState &dev, std::vector<uint8_t> &reply)
{
    if (cmd.opcode == KOPA_OP_get_ip_rules) {
        table_get(reply, dev.rules, dev.rule_count, cmd.size_out);
        return kOk;
    }
    kopa_ip_rule_record rule{};
    if (!request(cmd, rule) || !rule_ok(rule))
        return kInval;
    if (cmd.opcode == KOPA_OP_add_ip_rule)
        return table_add(dev.rules, dev.rule_count, KOPA_POLICY_MAX, rule, same_rule);
    return table_del(dev.rules, dev.rule_count, rule, same_rule);
}

int32_t route_command(const Command &cmd, DeviceState &dev, std::vector<uint8_t> &reply)
{
    if (cmd.opcode == KOPA_OP_get_ip_routes) {
        table_get(reply, dev.ip_routes, dev.ip_route_count, cmd.size_out);
        return kOk;
    }
    kopa_ip_route_record route{};
    if (!request(cmd, route) || !route_ok(route))
        return kInval;
    if (cmd.opcode == KOPA_OP_add_ip_route)
        return table_add(dev.ip_routes, dev.ip_route_count, KOPA_POLICY_MAX, route, same_route);
    return table_del(dev.ip_routes, dev.ip_route_count, route, same_route);
}

int32_t setting_command(const Command &cmd, DeviceState &dev, std::vector<uint8_t> &reply)
{
    switch (cmd.opcode) {
    case KOPA_OP_set_generic_info: {
        kopa_generic_set set{};
        if (!request(cmd, set) || set.type != KOPA_GENERIC_STATIC_SPEED ||
            !is_static_speed(set.value))
            return kInval;
        dev.static_speed = set.value;
        return kOk;
    }
    case KOPA_OP_set_optical_auto_adapt: {
        kopa_auto_adapt_set set{};
        if (!request(cmd, set) || set.enable > 1)
            return kInval;
        dev.auto_adapt = set.enable;
        return kOk;
    }
    case KOPA_OP_get_generic_info:
        put(reply, kopa_generic_info{dev.static_speed, dev.auto_adapt});
        return kOk;
    case KOPA_OP_set_fec_info: {
        kopa_fec_set set{};
        if (!request(cmd, set) || set.mode > 2)
            return kInval;
        dev.fec_mode = set.mode;
        return kOk;
    }
    case KOPA_OP_get_fec_info:
        put(reply, kopa_u32_value{dev.fec_mode});
        return kOk;
    case KOPA_OP_set_gratuitous_arp_info: {
        kopa_garp_info set{};
        if (!request(cmd, set) || set.status > 1 || set.period < kGarpPeriodMin ||
            set.period > kGarpPeriodMax)
            return kInval;
        dev.garp_period = set.period;
        dev.garp_status = set.status;
        return kOk;
    }
    case KOPA_OP_get_gratuitous_arp_info: {
        uint32_t port = 0;
        if (!request(cmd, port))
            return kInval;
        kopa_garp_info info{};
        info.port_id = port;
        info.period = dev.garp_period;
        info.status = dev.garp_status;
        memcpy(info.mac, dev.mac, sizeof info.mac);
        info.ip = dev.roce.address;
        put(reply, info);
        return kOk;
    }
    default:
        return kInval;
    }
}

} // namespace

bool is_static_speed(uint32_t mbps)
{
    return std::find(std::begin(kStaticSpeeds), std::end(kStaticSpeeds), mbps) !=
           std::end(kStaticSpeeds);
}

bool is_port_state_command(uint32_t opcode)
{
    switch (opcode) {
    case KOPA_OP_add_arp_entry:
    case KOPA_OP_del_arp_entry:
    case KOPA_OP_get_arp_table:
    case KOPA_OP_add_ip_rule:
    case KOPA_OP_del_ip_rule:
    case KOPA_OP_get_ip_rules:
    case KOPA_OP_add_ip_route:
    case KOPA_OP_del_ip_route:
    case KOPA_OP_get_ip_routes:
    case KOPA_OP_set_generic_info:
    case KOPA_OP_set_optical_auto_adapt:
    case KOPA_OP_get_generic_info:
    case KOPA_OP_set_fec_info:
    case KOPA_OP_get_fec_info:
    case KOPA_OP_set_gratuitous_arp_info:
    case KOPA_OP_get_gratuitous_arp_info:
        return true;
    default:
        return false;
    }
}

int32_t run_port_state_command(const Command &cmd, DeviceState &dev, std::vector<uint8_t> &reply,
                               bool &dirty)
{
    int32_t rc = kInval;
    switch (cmd.opcode) {
    case KOPA_OP_add_arp_entry:
    case KOPA_OP_del_arp_entry:
    case KOPA_OP_get_arp_table:
        rc = arp_command(cmd, dev, reply);
        break;
    case KOPA_OP_add_ip_rule:
    case KOPA_OP_del_ip_rule:
    case KOPA_OP_get_ip_rules:
        rc = rule_command(cmd, dev, reply);
        break;
    case KOPA_OP_add_ip_route:
    case KOPA_OP_del_ip_route:
    case KOPA_OP_get_ip_routes:
        rc = route_command(cmd, dev, reply);
        break;
    default:
        rc = setting_command(cmd, dev, reply);
        break;
    }
    const OpInfo *op = find_op(cmd.opcode);
    if (rc == kOk && op != nullptr && !op->name.starts_with("get_"))
        dirty = true;
    return rc;
}

} // namespace kopa_emu
