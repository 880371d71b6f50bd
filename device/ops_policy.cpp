// ARP table, policy routing and the generic settings' read: records of the device's own layout.
// The table reads answer as many records as the device holds, at most the caller's count.
#include "device/ops.hpp"
#include "device/ops_exchange.hpp"
#include "log/driver_log.hpp"

namespace
{

template <typename T> uint32_t size_of()
{
    return static_cast<uint32_t>(sizeof(T));
}

template <typename T>
int send_record(const char *name, uint32_t logic_id, uint32_t opcode, const T *record)
{
    return kopa_exchange(name, logic_id, opcode, record, size_of<T>(), nullptr, 0);
}

// A table of records: `*count` is the caller's capacity in, the number of whole records out.
template <typename T>
int read_table(const char *name, uint32_t logic_id, uint32_t opcode, T *records, uint32_t *count)
{
    uint32_t received = 0;
    const uint32_t room = *count * size_of<T>();
    int ret =
        kopa_exchange_variable(name, logic_id, opcode, nullptr, 0, records, room, 0, &received);
    *count = 0;
    if (ret != 0)
        return ret;
    // The channel counts a first piece longer than a packet without copying it: more bytes than
    // the room never reached `records`, and their count would send the caller past its array.
    if (received > room) {
        DRV_ERR("%s reply carries %u bytes, more than the room of %u, logic_id[%d]", name, received,
                room, static_cast<int>(logic_id));
        return kErrnoInval;
    }
    // A reply that ends inside a record carries part of an entry the device did not send whole.
    if (received % size_of<T>() != 0) {
        DRV_ERR("%s reply carries %u bytes, not whole records of %u, logic_id[%d]", name, received,
                size_of<T>(), static_cast<int>(logic_id));
        return kErrnoInval;
    }
    *count = received / size_of<T>();
    return 0;
}

} // namespace

int kopa_add_arp_entry(uint32_t logic_id, const kopa_arp_record *entry)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(entry, logic_id))
        return kErrnoInval;
    return send_record(__func__, logic_id, KOPA_OP_add_arp_entry, entry);
}

int kopa_del_arp_entry(uint32_t logic_id, const kopa_arp_record *entry)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(entry, logic_id))
        return kErrnoInval;
    return send_record(__func__, logic_id, KOPA_OP_del_arp_entry, entry);
}

int kopa_get_arp_table(uint32_t logic_id, kopa_arp_record *entries, uint32_t *count)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(entries, logic_id) ||
        !KOPA_ARG_OK(count, logic_id))
        return kErrnoInval;
    return read_table(__func__, logic_id, KOPA_OP_get_arp_table, entries, count);
}

int kopa_add_ip_rule(uint32_t logic_id, const kopa_ip_rule_record *rule)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(rule, logic_id))
        return kErrnoInval;
    return send_record(__func__, logic_id, KOPA_OP_add_ip_rule, rule);
}

int kopa_del_ip_rule(uint32_t logic_id, const kopa_ip_rule_record *rule)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(rule, logic_id))
        return kErrnoInval;
    return send_record(__func__, logic_id, KOPA_OP_del_ip_rule, rule);
}

int kopa_get_ip_rules(uint32_t logic_id, kopa_ip_rule_record *rules, uint32_t *count)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(rules, logic_id) ||
        !KOPA_ARG_OK(count, logic_id))
        return kErrnoInval;
    return read_table(__func__, logic_id, KOPA_OP_get_ip_rules, rules, count);
}

int kopa_add_ip_route(uint32_t logic_id, const kopa_ip_route_record *route)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(route, logic_id))
        return kErrnoInval;
    return send_record(__func__, logic_id, KOPA_OP_add_ip_route, route);
}

int kopa_del_ip_route(uint32_t logic_id, const kopa_ip_route_record *route)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(route, logic_id))
        return kErrnoInval;
    return send_record(__func__, logic_id, KOPA_OP_del_ip_route, route);
}

int kopa_get_ip_routes(uint32_t logic_id, kopa_ip_route_record *routes, uint32_t *count)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(routes, logic_id) ||
        !KOPA_ARG_OK(count, logic_id))
        return kErrnoInval;
    return read_table(__func__, logic_id, KOPA_OP_get_ip_routes, routes, count);
}

int kopa_get_generic_info(uint32_t logic_id, kopa_generic_info *info)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(info, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_generic_info, nullptr, 0, info,
                         size_of<kopa_generic_info>());
}
