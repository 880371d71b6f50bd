// TLS operations: envelope public key, configuration record, certificate query, switch and
// expiry alarm.
#include "device/ops.hpp"
#include "device/ops_exchange.hpp"

int kopa_get_tls_digital_envelope_pub_ky(uint32_t logic_id, kopa_envelope_pub_key *key)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(key, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_tls_digital_envelope_pub_ky, nullptr, 0,
                         key, sizeof(*key));
}

int kopa_set_tls_cfg(uint32_t logic_id, const uint8_t *blob)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(blob, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_set_tls_cfg, blob, TLS_CFG_SIZE, nullptr, 0);
}

int kopa_get_tls_cfg(uint32_t logic_id, uint32_t /*port_id*/, kopa_tls_cert_info *records,
                     uint32_t count)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(records, logic_id))
        return kErrnoInval;
    if (count == 0 || count > KOPA_TLS_CERT_INFO_MAX)
        return kErrnoInval;
    return kopa_read_table(__func__, logic_id, KOPA_OP_get_tls_cfg, records, &count);
}

int kopa_clear_tls_cfg(uint32_t logic_id, uint32_t port_id)
{
    if (!KOPA_LOGIC_ID_OK(logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_clear_tls_cfg, &port_id, sizeof(port_id),
                         nullptr, 0);
}

int kopa_set_tls_enable(uint32_t logic_id, uint32_t value)
{
    if (!KOPA_LOGIC_ID_OK(logic_id))
        return kErrnoInval;
    kopa_port_value_record rec{0, value};
    return kopa_exchange(__func__, logic_id, KOPA_OP_set_tls_enable, &rec, sizeof(rec), nullptr, 0);
}

int kopa_set_tls_alarm(uint32_t logic_id, uint32_t days)
{
    if (!KOPA_LOGIC_ID_OK(logic_id))
        return kErrnoInval;
    kopa_port_value_record rec{0, days};
    return kopa_exchange(__func__, logic_id, KOPA_OP_set_tls_alarm, &rec, sizeof(rec), nullptr, 0);
}
