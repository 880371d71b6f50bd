// ARP table, policy routing and the generic settings' read: records of the device's own layout.
// The table reads answer as many records as the device holds, at most the caller's count.
#include "device/ops.hpp"
#include "device/ops_exchange.hpp"

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
    return kopa_read_table(__func__, logic_id, KOPA_OP_get_arp_table, entries, count);
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
    return kopa_read_table(__func__, logic_id, KOPA_OP_get_ip_rules, rules, count);
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
    return kopa_read_table(__func__, logic_id, KOPA_OP_get_ip_routes, routes, count);
}

int kopa_get_generic_info(uint32_t logic_id, kopa_generic_info *info)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(info, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_generic_info, nullptr, 0, info,
                         size_of<kopa_generic_info>());
}
