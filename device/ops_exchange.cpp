// The shared body of the device operations and the generic pass-through kopa_send_data.
#include "device/ops_exchange.hpp"

#include <cstdio>

#include "device/channel.hpp"
#include "device/ops.hpp"
#include "log/driver_log.hpp"

namespace
{

constexpr uint32_t kMaxPortId = 7;

} // namespace

bool kopa_logic_id_ok(uint32_t logic_id, const char *func, int line)
{
    if (logic_id < KOPA_MAX_DEVICES)
        return true;
    if (drv_log_enabled(KELVAR_LEVEL_ERROR))
        drv_log_write(KELVAR_LEVEL_ERROR, func, line, "logic id:%d is invalid! expect [0]-[%d]",
                      static_cast<int>(logic_id), KOPA_MAX_DEVICES - 1);
    return false;
}

bool kopa_arg_ok(const void *ptr, const char *what, uint32_t logic_id, const char *func, int line)
{
    if (ptr != nullptr)
        return true;
    if (drv_log_enabled(KELVAR_LEVEL_ERROR))
        drv_log_write(KELVAR_LEVEL_ERROR, func, line, "%s is null, logic_id[%d]", what,
                      static_cast<int>(logic_id));
    return false;
}

void kopa_report_permission()
{
    fprintf(stderr, "permission denied: pls check this cmd run permission.\n");
    DRV_ERR("permission denied: pls check this cmd run permission.");
}

namespace
{

// One exchange: the firmware's verdict, the bytes the channel counted for the reply and those it
// copied into `out`.
int exchange(const char *name, uint32_t logic_id, uint32_t opcode, const void *in, uint32_t in_len,
             void *out, uint32_t out_len, uint32_t client_pid, uint32_t *received, uint32_t *copied)
{
    uint32_t size_out = out_len;
    network_channel_para para{opcode, in, in_len, out, &size_out, -1, client_pid};
    int ret = kopa_network_transmission_channel(logic_id, &para);
    // The channel adds every piece it receives to the size word instead of resetting it.
    *received = size_out - out_len;
    *copied = para.copied;
    if (ret != 0) {
        DRV_ERR("%s fail ret[%d] logic_id[%d]", name, ret, static_cast<int>(logic_id));
        return ret;
    }
    if (para.result == KOPA_RESULT_EPERM)
        kopa_report_permission();
    else if (para.result != 0)
        DRV_ERR("%s error result[%d]", name, para.result);
    return para.result;
}

} // namespace

int kopa_exchange_variable(const char *name, uint32_t logic_id, uint32_t opcode, const void *in,
                           uint32_t in_len, void *out, uint32_t out_len, uint32_t client_pid,
                           uint32_t *copied)
{
    uint32_t received = 0;
    uint32_t taken = 0;
    int ret =
        exchange(name, logic_id, opcode, in, in_len, out, out_len, client_pid, &received, &taken);
    if (copied != nullptr)
        *copied = ret == 0 ? taken : 0;
    if (ret != 0 || out_len == 0 || received == taken)
        return ret;
    DRV_ERR("%s reply carries %u bytes, %u of them copied, logic_id[%d]", name, received, taken,
            static_cast<int>(logic_id));
    if (copied != nullptr)
        *copied = 0;
    return kErrnoInval;
}

int kopa_read_records(const char *name, uint32_t logic_id, uint32_t opcode, void *records,
                      uint32_t record_size, uint32_t *count)
{
    uint32_t copied = 0;
    if (record_size == 0 || *count > UINT32_MAX / record_size) {
        *count = 0;
        return kErrnoInval;
    }
    int ret = kopa_exchange_variable(name, logic_id, opcode, nullptr, 0, records,
                                     *count * record_size, 0, &copied);
    *count = 0;
    if (ret != 0)
        return ret;
    // A reply that ends inside a record carries part of an entry the device did not send whole.
    if (copied % record_size != 0) {
        DRV_ERR("%s reply carries %u bytes, not whole records of %u, logic_id[%d]", name, copied,
                record_size, static_cast<int>(logic_id));
        return kErrnoInval;
    }
    *count = copied / record_size;
    return 0;
}

int kopa_exchange(const char *name, uint32_t logic_id, uint32_t opcode, const void *in,
                  uint32_t in_len, void *out, uint32_t out_len, uint32_t client_pid)
{
    uint32_t received = 0;
    uint32_t copied = 0;
    int ret =
        exchange(name, logic_id, opcode, in, in_len, out, out_len, client_pid, &received, &copied);
    if (ret != 0 || out_len == 0 || (received == out_len && copied == out_len))
        return ret;
    // Fewer bytes leave part of the record unsent. More are counted only when the channel
    // passed over a first piece longer than a packet without copying it; for a record longer
    // than a packet such a piece can even be counted as the whole record, with nothing copied.
    if (received == out_len)
        DRV_ERR("%s reply carries %u bytes, %u of them copied, expected %u, logic_id[%d]", name,
                received, copied, out_len, static_cast<int>(logic_id));
    else
        DRV_ERR("%s reply carries %u bytes, expected %u, logic_id[%d]", name, received, out_len,
                static_cast<int>(logic_id));
    return kErrnoInval;
}

int kopa_send_data(uint32_t logic_id, uint32_t port_id, kopa_send_request *request)
{
    if (!KOPA_LOGIC_ID_OK(logic_id) || !KOPA_ARG_OK(request, logic_id))
        return kErrnoInval;
    if (port_id > kMaxPortId) {
        DRV_ERR("Port id check failed. (port_id = %d)", static_cast<int>(port_id));
        return kErrnoInval;
    }
    DRV_DBG("Kopa send cmd (opcode=%d; cmdline=\"%s\")", static_cast<int>(request->opcode),
            request->cmdline != nullptr ? request->cmdline : "");

    uint32_t size_out = request->size_out;
    network_channel_para para{
        request->opcode, request->inbuf, request->size_in, request->outbuf, &size_out, -1, 0};
    int ret = kopa_network_transmission_channel(logic_id, &para);
    if (ret != 0) {
        DRV_ERR("Kopa send failed. (ret=%d; logic_id=%d; port=%d)", ret, static_cast<int>(logic_id),
                static_cast<int>(port_id));
        return ret;
    }
    if (para.result == KOPA_RESULT_EPERM)
        kopa_report_permission();
    else if (para.result != 0)
        DRV_ERR("Kopa send result failed. (result=%d; logic_id=%d; port=%d)", para.result,
                static_cast<int>(logic_id), static_cast<int>(port_id));
    return para.result;
}
