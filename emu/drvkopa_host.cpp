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
using kopa_emu::FaultSite;
using kopa_emu::FaultStage;
using kopa_emu::Session;

namespace
{

constexpr int kInval = -22;

/// Runs library function `name` (`body`, which returns its result) under the faults that name
/// it: a delay, and a forced return value either instead of the call, outputs untouched, or
/// with --after-apply once the call has done its work.
template <typename Body> int with_faults(const char *name, Body body)
{
    Session s;
    FaultSite site{name};
    const kopa_emu::FaultHits before = s.take_faults(site);
    if (const auto &ms = before[FaultKind::kDelay])
        (void)s.sleep_unlocked(static_cast<uint32_t>(*ms));
    if (const auto &ret = before[FaultKind::kFunction])
        return static_cast<int>(*ret);
    const int rc = body(s);
    site.stage = FaultStage::kAfter;
    const kopa_emu::FaultHits after = s.take_faults(site);
    if (const auto &ms = after[FaultKind::kDelay])
        (void)s.sleep_unlocked(static_cast<uint32_t>(*ms));
    const auto &ret = after[FaultKind::kFunction];
    return ret ? static_cast<int>(*ret) : rc;
}

/// Common shape of the per-device getters: device check, then the field.
template <typename Get>
int device_query(const char *name, unsigned int logic_id, unsigned int *out, Get get)
{
    return with_faults(name, [&](Session &s) {
        if (out == nullptr)
            return kInval;
        if (int rc = s.check_device(logic_id); rc != 0)
            return rc;
        *out = get(s.host().dev[logic_id]);
        return 0;
    });
}

} // namespace

extern "C" {

int kopa_get_device_count(int *count)
{
    return with_faults(__func__, [&](Session &s) {
        if (count == nullptr)
            return kInval;
        int n = 0;
        for (uint32_t i = 0; i < KOPA_MAX_DEVICES; ++i)
            n += s.check_device(i) == 0 ? 1 : 0;
        *count = n;
        return 0;
    });
}

int kopa_list_device(int *logic_ids, int count)
{
    return with_faults(__func__, [&](Session &s) {
        if (logic_ids == nullptr || count <= 0 || count > static_cast<int>(KOPA_MAX_DEVICES))
            return kInval;
        int n = 0;
        for (uint32_t i = 0; i < KOPA_MAX_DEVICES && n < count; ++i) {
            if (s.check_device(i) == 0)
                logic_ids[n++] = static_cast<int>(i);
        }
        return n == count ? 0 : kInval;
    });
}

int kopa_get_logicid_from_phyid(unsigned int phy_id, unsigned int *logic_id)
{
    return with_faults(__func__, [&](Session &s) {
        if (logic_id == nullptr)
            return kInval;
        int id = s.logic_of_phy(phy_id);
        if (id < 0)
            return id;
        *logic_id = static_cast<unsigned int>(id);
        return 0;
    });
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
    return with_faults(__func__, [&](Session &s) {
        if (record == nullptr || port_id != 0)
            return kInval;
        if (port_type != KOPA_PORT_TYPE_VNIC && port_type != KOPA_PORT_TYPE_ROCE)
            return kInval;
        if (int rc = s.check_device(logic_id); rc != 0)
            return rc;
        const kopa_emu::DeviceState *d = s.device(logic_id);
        *record = port_type == KOPA_PORT_TYPE_VNIC ? d->vnic : d->roce;
        return 0;
    });
}

int kopa_set_device_ip_address(unsigned int logic_id, int port_type, int port_id,
                               const struct kopa_ip_record *record)
{
    return with_faults(__func__, [&](Session &s) {
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
    });
}

int kopa_cmd_get_network_device_info(unsigned int logic_id, void *req, unsigned int req_len,
                                     void *rsp, unsigned int *rsp_len)
{
    Session s;
    ds_req in{};
    if (req != nullptr && req_len == KOPA_REQ_SIZE)
        memcpy(&in, req, sizeof in);
    const bool well_formed = req != nullptr && rsp != nullptr && rsp_len != nullptr &&
                             req_len == KOPA_REQ_SIZE && *rsp_len == KOPA_RSP_SIZE;
    ds_rsp out{};
    const kopa_emu::CallAnswer answer = kopa_emu::answer_call(s, logic_id, in, well_formed, out);
    if (answer.replied)
        memcpy(rsp, &out, sizeof out);
    if (rsp_len != nullptr)
        *rsp_len = answer.rsp_len;
    explicit_bzero(in.info, sizeof in.info); // the payload may be part of a TLS record

    if (s.journal_enabled()) {
        kopa_emu::JournalRecord rec{logic_id,      in.opcode,   in.frag,        in.direction,
                                    in.size_in,    in.size_out, in.copy_size,   in.tgid,
                                    in.client_pid, answer.ret,  answer.rsp_len, out.result,
                                    out.frag,      out.data_len};
        s.journal_append(rec);
    }
    explicit_bzero(out.info, sizeof out.info);
    const int saved = s.commit();
    return (saved != 0 && answer.ret == 0) ? saved : answer.ret;
}

} // extern "C"
