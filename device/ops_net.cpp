// Port network operations: addresses, gateway, MAC, link, MTU, routes, RoCE port, LLDP,
// vNIC, recovery status and the port's identity reads.
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "base/escape.hpp"
#include "device/ops.hpp"
#include "device/ops_exchange.hpp"
#include "log/driver_log.hpp"

namespace
{

template <typename T> uint32_t size_of(const T &)
{
    return static_cast<uint32_t>(sizeof(T));
}

} // namespace

int kopa_set_net_detect_ip_address(uint32_t logic_id, uint32_t address)
{
    if (!KOPA_LOGIC_ID_OK(logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_set_net_detect_ip_address, &address,
                         size_of(address), nullptr, 0);
}

int kopa_get_net_detect_ip_address(uint32_t logic_id, uint32_t /*port_id*/, uint32_t *address)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(address, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_net_detect_ip_address, nullptr, 0, address,
                         size_of(*address));
}

int kopa_set_default_gateway_address(uint32_t logic_id, uint32_t port_id, uint32_t gateway)
{
    if (!KOPA_LOGIC_ID_OK(logic_id))
        return kErrnoInval;
    kopa_gateway_record rec{port_id, gateway, 0};
    return kopa_exchange(__func__, logic_id, KOPA_OP_set_default_gateway_address, &rec,
                         size_of(rec), nullptr, 0);
}

int kopa_del_default_gateway_address(uint32_t logic_id, uint32_t port_id, uint32_t gateway)
{
    if (!KOPA_LOGIC_ID_OK(logic_id))
        return kErrnoInval;
    kopa_gateway_record rec{port_id, gateway, 0};
    return kopa_exchange(__func__, logic_id, KOPA_OP_del_default_gateway_address, &rec,
                         size_of(rec), nullptr, 0);
}

int kopa_get_default_gateway_address(uint32_t logic_id, uint32_t *gateway, uint32_t *port)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(gateway, logic_id) ||
        !KOPA_ARG_OK(port, logic_id))
        return kErrnoInval;
    kopa_gateway_record rec{};
    int ret = kopa_exchange(__func__, logic_id, KOPA_OP_get_default_gateway_address, nullptr, 0,
                            &rec, size_of(rec));
    if (ret == 0) {
        *gateway = rec.gateway;
        *port = rec.port;
    }
    return ret;
}

int kopa_lldp_get_neighbor_info(uint32_t logic_id)
{
    if (!KOPA_LOGIC_ID_OK(logic_id))
        return kErrnoInval;
    constexpr uint32_t kCapacity = 2000;
    // One spare byte keeps the text terminated whatever the firmware sends.
    char text[kCapacity + 1] = {};
    uint32_t copied = 0;
    int ret = kopa_exchange_variable(__func__, logic_id, KOPA_OP_lldp_get_neighbor_info, nullptr, 0,
                                     text, kCapacity, 0, &copied);
    if (ret != 0)
        return ret;
    // The text comes with its terminator, so an answer without a byte carries no text.
    if (copied == 0) {
        DRV_ERR("%s reply carries no text, logic_id[%d]", __func__, static_cast<int>(logic_id));
        return kErrnoInval;
    }
    print_escaped(stdout, text, strnlen(text, copied));
    putchar('\n');
    return 0;
}

int kopa_get_mac_address(uint32_t logic_id, uint32_t /*port_id*/, uint8_t mac[6])
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(mac, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_mac_address, nullptr, 0, mac,
                         sizeof(kopa_mac_record));
}

int kopa_set_mac_address(uint32_t logic_id, uint32_t /*port_id*/, const uint8_t mac[6])
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(mac, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_set_mac_address, mac, sizeof(kopa_mac_record),
                         nullptr, 0);
}

int kopa_set_netdev_link(uint32_t logic_id, uint32_t port_id, uint32_t state)
{
    if (!KOPA_LOGIC_ID_OK(logic_id))
        return kErrnoInval;
    kopa_link_set_record rec{static_cast<uint8_t>(port_id), static_cast<uint8_t>(state), 0};
    return kopa_exchange(__func__, logic_id, KOPA_OP_set_netdev_link, &rec, size_of(rec), nullptr,
                         0);
}

int kopa_get_netdev_link(uint32_t logic_id, uint32_t /*port_id*/, uint32_t *state)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(state, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_netdev_link, nullptr, 0, state,
                         size_of(*state));
}

int kopa_set_mtu(uint32_t logic_id, uint32_t port_id, uint32_t mtu)
{
    if (!KOPA_LOGIC_ID_OK(logic_id))
        return kErrnoInval;
    kopa_mtu_record rec{static_cast<uint8_t>(port_id), mtu};
    return kopa_exchange(__func__, logic_id, KOPA_OP_set_mtu, &rec, size_of(rec), nullptr, 0);
}

namespace
{

int read_mtu(const char *name, uint32_t logic_id, uint32_t *mtu)
{
    kopa_mtu_record rec{};
    int ret = kopa_exchange(name, logic_id, KOPA_OP_get_mtu, nullptr, 0, &rec, size_of(rec));
    if (ret == 0)
        *mtu = rec.mtu;
    return ret;
}

} // namespace

int kopa_get_mtu(uint32_t logic_id, uint32_t /*port_id*/)
{
    if (!KOPA_LOGIC_ID_OK(logic_id))
        return kErrnoInval;
    uint32_t mtu = 0;
    int ret = read_mtu(__func__, logic_id, &mtu);
    if (ret == 0)
        printf("mtu:%u\n", mtu);
    return ret;
}

int kopa_read_mtu(uint32_t logic_id, uint32_t /*port_id*/, uint32_t *mtu)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(mtu, logic_id))
        return kErrnoInval;
    return read_mtu(__func__, logic_id, mtu);
}

int kopa_get_route_table(uint32_t logic_id, uint32_t /*port_id*/, char *buf, uint32_t len)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(buf, logic_id))
        return kErrnoInval;
    return kopa_exchange_variable(__func__, logic_id, KOPA_OP_get_route_table, nullptr, 0, buf, len,
                                  static_cast<uint32_t>(getpid()));
}

int kopa_add_route_table(uint32_t logic_id, uint32_t /*port_id*/, const kopa_route_record *route)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(route, logic_id))
        return kErrnoInval;
    uint32_t reply = 0;
    return kopa_exchange_variable(__func__, logic_id, KOPA_OP_add_route_table, route,
                                  sizeof(*route), &reply, size_of(reply));
}

int kopa_del_route_table(uint32_t logic_id, uint32_t /*port_id*/, const kopa_route_record *route)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(route, logic_id))
        return kErrnoInval;
    uint32_t reply = 0;
    return kopa_exchange_variable(__func__, logic_id, KOPA_OP_del_route_table, route,
                                  sizeof(*route), &reply, size_of(reply));
}

int kopa_set_roce_port(uint32_t logic_id, uint32_t port_id, uint32_t udp_port)
{
    if (!KOPA_LOGIC_ID_OK(logic_id))
        return kErrnoInval;
    kopa_roce_port_record rec{static_cast<uint16_t>(port_id), udp_port};
    return kopa_exchange(__func__, logic_id, KOPA_OP_set_roce_port, &rec, size_of(rec), nullptr, 0);
}

namespace
{

int read_roce_port(const char *name, uint32_t logic_id, uint32_t *udp_port)
{
    kopa_roce_port_record rec{};
    int ret = kopa_exchange(name, logic_id, KOPA_OP_get_roce_port, nullptr, 0, &rec, size_of(rec));
    if (ret == 0)
        *udp_port = rec.udp_port;
    return ret;
}

} // namespace

int kopa_get_roce_port(uint32_t logic_id, uint32_t /*port_id*/)
{
    if (!KOPA_LOGIC_ID_OK(logic_id))
        return kErrnoInval;
    uint32_t udp_port = 0;
    int ret = read_roce_port(__func__, logic_id, &udp_port);
    if (ret == 0)
        printf("udp_port:%d\n", static_cast<int>(udp_port));
    return ret;
}

int kopa_read_roce_port(uint32_t logic_id, uint32_t /*port_id*/, uint32_t *udp_port)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(udp_port, logic_id))
        return kErrnoInval;
    return read_roce_port(__func__, logic_id, udp_port);
}

int kopa_set_cfg_status(uint32_t logic_id, uint32_t status)
{
    if (!KOPA_LOGIC_ID_OK(logic_id))
        return kErrnoInval;
    kopa_cfg_status_record rec{0, status};
    return kopa_exchange(__func__, logic_id, KOPA_OP_set_cfg_status, &rec, size_of(rec), nullptr,
                         0);
}

int kopa_get_cfg_status(uint32_t logic_id, uint32_t *status)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(status, logic_id))
        return kErrnoInval;
    kopa_cfg_status_record query{0, 0};
    kopa_cfg_status_record reply{};
    int ret = kopa_exchange(__func__, logic_id, KOPA_OP_get_cfg_status, &query, size_of(query),
                            &reply, size_of(reply));
    if (ret == 0)
        *status = reply.status;
    return ret;
}

int kopa_get_vnic_status(uint32_t logic_id, uint32_t /*port_id*/, uint32_t *link)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(link, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_vnic_status, nullptr, 0, link,
                         size_of(*link));
}

int kopa_get_firmware_version(uint32_t logic_id, char *buf, uint32_t len)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(buf, logic_id))
        return kErrnoInval;
    return kopa_exchange_variable(__func__, logic_id, KOPA_OP_get_firmware_version, nullptr, 0, buf,
                                  len);
}

int kopa_get_eth_duplex(uint32_t logic_id, uint32_t *duplex)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(duplex, logic_id))
        return kErrnoInval;
    return kopa_exchange(__func__, logic_id, KOPA_OP_get_eth_duplex, nullptr, 0, duplex,
                         size_of(*duplex));
}
