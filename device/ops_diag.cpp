// Diagnostics, statistics, traffic-class and RoCE-test operations: records of the project's
// layouts (platform/kopa_platform.h), and opaque blocks for the reads no command prints.
#include <unistd.h>

#include "device/ops.hpp"
#include "device/ops_exchange.hpp"

namespace
{

template <typename T> uint32_t size_of(const T &)
{
    return static_cast<uint32_t>(sizeof(T));
}

// A reply record of a fixed size read into the caller's record; a shorter reply is -22.
int get_record(const char *name, uint32_t logic_id, uint32_t opcode, void *out, uint32_t len)
{
    return kopa_exchange(name, logic_id, opcode, nullptr, 0, out, len);
}

// A reply of the device's choosing (text, dump, table) read into the caller's `len` bytes.
int get_sized(const char *name, uint32_t logic_id, uint32_t opcode, void *out, uint32_t len)
{
    return kopa_exchange_variable(name, logic_id, opcode, nullptr, 0, out, len);
}

// A request without reply.
int set_only(const char *name, uint32_t logic_id, uint32_t opcode, const void *in, uint32_t len)
{
    return kopa_exchange(name, logic_id, opcode, in, len, nullptr, 0);
}

} // namespace

int kopa_set_dscp_map(uint32_t logic_id, const kopa_dscp_map_set *map)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(map, logic_id))
        return kErrnoInval;
    return set_only(__func__, logic_id, KOPA_OP_set_dscp_map, map, sizeof(*map));
}

int kopa_get_dscp_map(uint32_t logic_id, kopa_dscp_map *map)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(map, logic_id))
        return kErrnoInval;
    return get_record(__func__, logic_id, KOPA_OP_get_dscp_map, map, sizeof(*map));
}

int kopa_set_port_shaping(uint32_t logic_id, const kopa_shaping_set *shaping)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(shaping, logic_id))
        return kErrnoInval;
    return set_only(__func__, logic_id, KOPA_OP_set_port_shaping, shaping, sizeof(*shaping));
}

int kopa_get_port_shaping(uint32_t logic_id, kopa_shaping_info *shaping)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(shaping, logic_id))
        return kErrnoInval;
    return get_record(__func__, logic_id, KOPA_OP_get_port_shaping, shaping, sizeof(*shaping));
}

int kopa_get_pfc_enabled(uint32_t logic_id, kopa_pfc_info *pfc)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(pfc, logic_id))
        return kErrnoInval;
    return get_record(__func__, logic_id, KOPA_OP_get_pfc_enabled, pfc, sizeof(*pfc));
}

int kopa_set_pfc_enabled(uint32_t logic_id, const void *data, uint32_t len)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(data, logic_id))
        return kErrnoInval;
    return set_only(__func__, logic_id, KOPA_OP_set_pfc_enabled, data, len);
}

int kopa_get_tc_cfg(uint32_t logic_id, kopa_tc_cfg_info *cfg)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(cfg, logic_id))
        return kErrnoInval;
    return get_record(__func__, logic_id, KOPA_OP_get_tc_cfg, cfg, sizeof(*cfg));
}

int kopa_set_tc_cfg(uint32_t logic_id, const kopa_tc_cfg_set *cfg)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(cfg, logic_id))
        return kErrnoInval;
    return set_only(__func__, logic_id, KOPA_OP_set_tc_cfg, cfg, sizeof(*cfg));
}

int kopa_get_current_tc_used(uint32_t logic_id, uint32_t tc, uint32_t *used)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(used, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_current_tc_used, &tc, sizeof(tc), used,
                         sizeof(*used));
}

int kopa_get_prio_tc_info(uint32_t logic_id, void *buf, uint32_t len)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(buf, logic_id))
        return kErrnoInval;
    return get_sized(__func__, logic_id, KOPA_OP_get_prio_tc_info, buf, len);
}

int kopa_set_prio_tc_info(uint32_t logic_id, const void *data, uint32_t len)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(data, logic_id))
        return kErrnoInval;
    return set_only(__func__, logic_id, KOPA_OP_set_prio_tc_info, data, len);
}

int kopa_get_gratuitous_arp_info(uint32_t logic_id, uint32_t port_id, kopa_garp_info *info)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(info, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_gratuitous_arp_info, &port_id,
                         sizeof(port_id), info, sizeof(*info));
}

int kopa_set_gratuitous_arp_info(uint32_t logic_id, const void *data, uint32_t len)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(data, logic_id))
        return kErrnoInval;
    return set_only(__func__, logic_id, KOPA_OP_set_gratuitous_arp_info, data, len);
}

int kopa_set_generic_info(uint32_t logic_id, const void *data, uint32_t len)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(data, logic_id))
        return kErrnoInval;
    return set_only(__func__, logic_id, KOPA_OP_set_generic_info, data, len);
}

int kopa_set_optical_auto_adapt(uint32_t logic_id, const void *data, uint32_t len)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(data, logic_id))
        return kErrnoInval;
    return set_only(__func__, logic_id, KOPA_OP_set_optical_auto_adapt, data, len);
}

int kopa_get_optical_info(uint32_t logic_id, kopa_optical_info *info)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(info, logic_id))
        return kErrnoInval;
    return get_record(__func__, logic_id, KOPA_OP_get_optical_info, info, size_of(*info));
}

int kopa_get_netdev_stat(uint32_t logic_id, kopa_netdev_stat *stat)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(stat, logic_id))
        return kErrnoInval;
    return get_record(__func__, logic_id, KOPA_OP_get_netdev_stat, stat, size_of(*stat));
}

int kopa_clear_netdev_stat(uint32_t logic_id)
{
    if (!KOPA_LOGIC_ID_OK(logic_id))
        return kErrnoInval;
    return set_only(__func__, logic_id, KOPA_OP_clear_netdev_stat, nullptr, 0);
}

int kopa_get_netdev_status(uint32_t logic_id, kopa_netdev_status *status)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(status, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_netdev_status, nullptr, 0, status,
                         size_of(*status), static_cast<uint32_t>(getpid()));
}

int kopa_get_link_his_stat(uint32_t logic_id, void *buf, uint32_t len)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(buf, logic_id))
        return kErrnoInval;
    return get_sized(__func__, logic_id, KOPA_OP_get_link_his_stat, buf, len);
}

int kopa_clear_link_his_stat(uint32_t logic_id)
{
    if (!KOPA_LOGIC_ID_OK(logic_id))
        return kErrnoInval;
    return set_only(__func__, logic_id, KOPA_OP_clear_link_his_stat, nullptr, 0);
}

int kopa_get_eth_speed(uint32_t logic_id, uint32_t *speed)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(speed, logic_id))
        return kErrnoInval;
    return get_record(__func__, logic_id, KOPA_OP_get_eth_speed, speed, sizeof(*speed));
}

int kopa_get_fec_info(uint32_t logic_id, uint32_t *fec)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(fec, logic_id))
        return kErrnoInval;
    return get_record(__func__, logic_id, KOPA_OP_get_fec_info, fec, sizeof(*fec));
}

int kopa_set_fec_info(uint32_t logic_id, uint8_t mode)
{
    if (!KOPA_LOGIC_ID_OK(logic_id))
        return kErrnoInval;
    kopa_fec_set rec{mode};
    return set_only(__func__, logic_id, KOPA_OP_set_fec_info, &rec, sizeof(rec));
}

int kopa_get_eth_test_info(uint32_t logic_id, uint8_t type, kopa_eth_test_info *info)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(info, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_eth_test_info, &type, size_of(type), info,
                         size_of(*info));
}

int kopa_get_pci_info(uint32_t logic_id, kopa_pci_info *info)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(info, logic_id))
        return kErrnoInval;
    return get_record(__func__, logic_id, KOPA_OP_get_pci_info, info, size_of(*info));
}

int kopa_get_device_process(uint32_t logic_id, kopa_process_record *records, uint32_t *count)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(records, logic_id) ||
        !KOPA_ARG_OK(count, logic_id))
        return kErrnoInval;
    return kopa_read_table(__func__, logic_id, KOPA_OP_get_device_process, records, count);
}

int kopa_get_eth_reg_info(uint32_t logic_id, kopa_reg_record *records, uint32_t *count)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(records, logic_id) ||
        !KOPA_ARG_OK(count, logic_id))
        return kErrnoInval;
    return kopa_read_table(__func__, logic_id, KOPA_OP_get_eth_reg_info, records, count);
}

int kopa_get_network_register(uint32_t logic_id, uint32_t offset, uint32_t *value)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(value, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_network_register, &offset, size_of(offset),
                         value, size_of(*value));
}

int kopa_get_ssu_reg(uint32_t logic_id, kopa_backpressure_info *info)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(info, logic_id))
        return kErrnoInval;
    return get_record(__func__, logic_id, KOPA_OP_get_ssu_reg, info, size_of(*info));
}

int kopa_get_roce_context(uint32_t logic_id, const kopa_roce_context_query *query,
                          kopa_roce_qp_context *context)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(query, logic_id) ||
        !KOPA_ARG_OK(context, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_roce_context, query, size_of(*query),
                         context, size_of(*context));
}

int kopa_get_roce_dfx_len(uint32_t logic_id, void *buf, uint32_t len)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(buf, logic_id))
        return kErrnoInval;
    return get_sized(__func__, logic_id, KOPA_OP_get_roce_dfx_len, buf, len);
}

int kopa_get_roce_dfx_data(uint32_t logic_id, uint32_t index, void *buf, uint32_t len)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(buf, logic_id))
        return kErrnoInval;
    return kopa_exchange_variable(__func__, logic_id, KOPA_OP_get_roce_dfx_data, &index,
                                  size_of(index), buf, len);
}

int kopa_start_roce_perftest(uint32_t logic_id, const kopa_roce_perftest_req *req)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(req, logic_id))
        return kErrnoInval;
    return set_only(__func__, logic_id, KOPA_OP_start_roce_perftest, req, size_of(*req));
}

int kopa_get_roce_perftest_status(uint32_t logic_id, const kopa_roce_perftest_query *query,
                                  kopa_roce_perftest_status *status)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(query, logic_id) ||
        !KOPA_ARG_OK(status, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_roce_perftest_status, query,
                         size_of(*query), status, size_of(*status));
}

int kopa_get_roce_perftest_report(uint32_t logic_id, const kopa_roce_perftest_query *query,
                                  kopa_roce_perftest_report *report)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(query, logic_id) ||
        !KOPA_ARG_OK(report, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_roce_perftest_report, query,
                         size_of(*query), report, size_of(*report));
}

int kopa_stop_roce_perftest(uint32_t logic_id, const kopa_roce_perftest_query *query)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(query, logic_id))
        return kErrnoInval;
    return set_only(__func__, logic_id, KOPA_OP_stop_roce_perftest, query, size_of(*query));
}

int kopa_reset_roce_perftest(uint32_t logic_id, void *buf)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(buf, logic_id))
        return kErrnoInval;
    return get_sized(__func__, logic_id, KOPA_OP_reset_roce_perftest, buf, 2000);
}

int kopa_ping_fun(uint32_t logic_id, const kopa_ping_req *req, kopa_ping_reply *reply)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(req, logic_id) || !KOPA_ARG_OK(reply, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_ping_fun, req, size_of(*req), reply,
                         size_of(*reply));
}

int kopa_get_serdes_ctle_info(uint32_t logic_id, void *info)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(info, logic_id))
        return kErrnoInval;
    return get_record(__func__, logic_id, KOPA_OP_get_serdes_ctle_info, info, 230);
}

int kopa_get_serdes_dfe_info(uint32_t logic_id, void *info)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(info, logic_id))
        return kErrnoInval;
    return get_record(__func__, logic_id, KOPA_OP_get_serdes_dfe_info, info, 160);
}

int kopa_get_serdes_ffe_info(uint32_t logic_id, void *info)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(info, logic_id))
        return kErrnoInval;
    return get_record(__func__, logic_id, KOPA_OP_get_serdes_ffe_info, info, 50);
}

int kopa_get_pcs_info(uint32_t logic_id, void *info)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(info, logic_id))
        return kErrnoInval;
    return get_record(__func__, logic_id, KOPA_OP_get_pcs_info, info, 904);
}

int kopa_get_adapt_status_info(uint32_t logic_id, uint32_t lane, void *info)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(info, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_adapt_status_info, &lane, sizeof(lane),
                         info, 144);
}

int kopa_trig_query_cdr_info(uint32_t logic_id, const kopa_cdr_trigger *trigger,
                             kopa_cdr_trigger_reply *reply)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(trigger, logic_id) ||
        !KOPA_ARG_OK(reply, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_trig_query_cdr_info, trigger,
                         size_of(*trigger), reply, size_of(*reply));
}

int kopa_query_mac_lane_cdr_info(uint32_t logic_id, kopa_mac_lane_cdr_info *info)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(info, logic_id))
        return kErrnoInval;
    return get_record(__func__, logic_id, KOPA_OP_query_mac_lane_cdr_info, info, size_of(*info));
}

int kopa_get_cdr_reg_info(uint32_t logic_id, const kopa_cdr_reg_block *req, kopa_cdr_reg_block *out)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(req, logic_id) || !KOPA_ARG_OK(out, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_cdr_reg_info, req, size_of(*req), out,
                         size_of(*out));
}
