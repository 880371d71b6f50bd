// libdrvkopa_host.so of the emulator: device ids, health, board, network health, port addresses
// and the channel call, all answered from the state under $KOPA_EMU_DIR.
#pragma GCC visibility push(default)
#include "platform/kopa_platform.h"
#pragma GCC visibility pop

#include <cstring>
#include <optional>

#include "emu/channel.hpp"
#include "emu/state.hpp"

using kopa_emu::FaultKind;
using kopa_emu::Session;

namespace
{

constexpr int kInval = -22;

/// A forced return value of library function `name`, if a fault asks for one.
std::optional<int> forced(Session &s, const char *name)
{
    if (auto v = s.take_fault(FaultKind::kFunction, 0, name))
        return static_cast<int>(*v);
    return std::nullopt;
}

/// Common shape of the per-device getters: fault, device check, then the field.
template <typename Get>
int device_query(const char *name, unsigned int logic_id, unsigned int *out, Get get)
{
    Session s;
    if (auto rc = forced(s, name))
        return *rc;
    if (out == nullptr)
        return kInval;
    if (int rc = s.check_device(logic_id); rc != 0)
        return rc;
    *out = get(s.host().dev[logic_id]);
    return 0;
}

} // namespace

extern "C" {

int kopa_get_device_count(int *count)
{
    Session s;
    if (auto rc = forced(s, __func__))
        return *rc;
    if (count == nullptr)
        return kInval;
    int n = 0;
    for (uint32_t i = 0; i < KOPA_MAX_DEVICES; ++i)
        n += s.check_device(i) == 0 ? 1 : 0;
    *count = n;
    return 0;
}

int kopa_list_device(int *logic_ids, int count)
{
    Session s;
    if (auto rc = forced(s, __func__))
        return *rc;
    if (logic_ids == nullptr || count <= 0 || count > static_cast<int>(KOPA_MAX_DEVICES))
        return kInval;
    int n = 0;
    for (uint32_t i = 0; i < KOPA_MAX_DEVICES && n < count; ++i) {
        if (s.check_device(i) == 0)
            logic_ids[n++] = static_cast<int>(i);
    }
    return n == count ? 0 : kInval;
}

int kopa_get_logicid_from_phyid(unsigned int phy_id, unsigned int *logic_id)
{
    Session s;
    if (auto rc = forced(s, __func__))
        return *rc;
    if (logic_id == nullptr)
        return kInval;
    int id = s.logic_of_phy(phy_id);
    if (id < 0)
        return id;
    *logic_id = static_cast<unsigned int>(id);
    return 0;
}

int kopa_get_phyid_from_logicid(unsigned int logic_id, unsigned int *phy_id)
{
    return device_query(__func__, logic_id, phy_id,
                        [](const kopa_emu::HostDevice &d) { return d.phy_id; });
}

int kopa_get_device_health(unsigned int logic_id, unsigned int *health)
{
    return device_query(__func__, logic_id, health,
                        [](const kopa_emu::HostDevice &d) { return d.health; });
}

int kopa_get_board_id(unsigned int logic_id, unsigned int *board_id)
{
    return device_query(__func__, logic_id, board_id,
                        [](const kopa_emu::HostDevice &d) { return d.board_id; });
}

int kopa_get_network_health(unsigned int logic_id, unsigned int *status)
{
    return device_query(__func__, logic_id, status,
                        [](const kopa_emu::HostDevice &d) { return d.net_health; });
}

int kopa_get_device_ip_address(unsigned int logic_id, int port_type, int port_id,
                               struct kopa_ip_record *record)
{
    Session s;
    if (auto rc = forced(s, __func__))
        return *rc;
    if (record == nullptr || port_id != 0)
        return kInval;
    if (port_type != KOPA_PORT_TYPE_VNIC && port_type != KOPA_PORT_TYPE_ROCE)
        return kInval;
    if (int rc = s.check_device(logic_id); rc != 0)
        return rc;
    const kopa_emu::DeviceState *d = s.device(logic_id);
    *record = port_type == KOPA_PORT_TYPE_VNIC ? d->vnic : d->roce;
    return 0;
}

int kopa_set_device_ip_address(unsigned int logic_id, int port_type, int port_id,
                               const struct kopa_ip_record *record)
{
    Session s;
    if (auto rc = forced(s, __func__))
        return *rc;
    if (record == nullptr || port_id != 0)
        return kInval;
    if (port_type != KOPA_PORT_TYPE_VNIC && port_type != KOPA_PORT_TYPE_ROCE)
        return kInval;
    if (int rc = s.check_device(logic_id); rc != 0)
        return rc;
    kopa_emu::DeviceState *d = s.device(logic_id);
    (port_type == KOPA_PORT_TYPE_VNIC ? d->vnic : d->roce) = *record;
    s.mark_device_dirty(logic_id);
    return s.commit();
}

int kopa_cmd_get_network_device_info(unsigned int logic_id, void *req, unsigned int req_len,
                                     void *rsp, unsigned int *rsp_len)
{
    Session s;
    kopa_emu::JournalRecord rec{};
    ds_req in{};
    if (req != nullptr && req_len == KOPA_REQ_SIZE)
        memcpy(&in, req, sizeof in);
    rec = {logic_id,
           in.opcode,
           in.frag,
           in.direction,
           in.size_in,
           in.size_out,
           in.copy_size,
           in.tgid,
           in.client_pid,
           0,
           0,
           0,
           0,
           0};

    int ret = 0;
    ds_rsp out{};
    if (auto rc = forced(s, __func__)) {
        ret = *rc;
    } else if (req == nullptr || rsp == nullptr || rsp_len == nullptr || req_len != KOPA_REQ_SIZE ||
               *rsp_len != KOPA_RSP_SIZE) {
        ret = kInval;
    } else {
        ret = s.check_device(logic_id);
    }
    uint32_t len = KOPA_RSP_SIZE;
    if (ret == 0) {
        len = kopa_emu::answer_packet(s, logic_id, in, out);
        memcpy(rsp, &out, sizeof out);
    }
    if (rsp_len != nullptr)
        *rsp_len = len;
    explicit_bzero(in.info, sizeof in.info); // the payload may be part of a TLS record

    if (s.journal_enabled()) {
        rec.ret = ret;
        rec.rsp_len = len;
        rec.result = out.result;
        rec.rsp_frag = out.frag;
        rec.data_len = out.data_len;
        s.journal_append(rec);
    }
    explicit_bzero(out.info, sizeof out.info);
    const int saved = s.commit();
    return (saved != 0 && ret == 0) ? saved : ret;
}

} // extern "C"
