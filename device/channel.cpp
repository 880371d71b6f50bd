// The network transmission channel: one command cut into 2000-byte packets on the way to the
// firmware and its reply pieces joined on the way back.
#include "device/channel.hpp"

#include <cerrno>
#include <cstring>

#include "base/result.hpp"
#include "log/driver_log.hpp"

namespace
{

constexpr uint32_t kMaxLogicId = KOPA_MAX_DEVICES - 1;

// Bounded copy: refuses rather than truncates when the source does not fit the destination.
int bounded_copy(void *dst, size_t dst_max, const void *src, size_t count)
{
    if (dst == nullptr || src == nullptr)
        return kErrnoInval;
    if (count > dst_max)
        return -ERANGE;
    memcpy(dst, src, count);
    return 0;
}

// The payload areas may have carried key material (the TLS record), so the wipe must survive
// dead-store elimination at the end of the call.
int bounded_wipe(void *dst, size_t dst_max, size_t count)
{
    if (dst == nullptr)
        return kErrnoInval;
    if (count > dst_max)
        return -ERANGE;
    explicit_bzero(dst, count);
    return 0;
}

int kopa_network_transmission_channel_para_check(const network_channel_para *para)
{
    if (para->inbuf == nullptr && para->size_in != 0) {
        DRV_ERR("invalid param, inbuf is NULL, size_in %u", para->size_in);
        return kErrnoInval;
    }
    if (para->inbuf != nullptr && para->size_in == 0) {
        DRV_ERR("invalid param, inbuf is %p, size_in 0", para->inbuf);
        return kErrnoInval;
    }
    if (para->outbuf == nullptr && para->size_out == nullptr) {
        DRV_ERR("invalid param, outbuf is NULL, sizeout is NULL");
        return kErrnoInval;
    }
    if (para->outbuf == nullptr && *para->size_out != 0) {
        DRV_ERR("invalid param, outbuf is NULL, sizeout %u", *para->size_out);
        return kErrnoInval;
    }
    if (para->outbuf != nullptr && para->size_out == nullptr) {
        DRV_ERR("invalid param, outbuf is %p, sizeout is NULL", para->outbuf);
        return kErrnoInval;
    }
    if (para->outbuf != nullptr && *para->size_out == 0) {
        DRV_ERR("invalid param, outbuf is not NULL, sizeout is zero");
        return kErrnoInval;
    }
    return 0;
}

void kopa_network_transmission_channel_cmd_init(uint32_t logic_id, const network_channel_para *para,
                                                ds_req *req)
{
    req->logic_id = logic_id;
    req->opcode = para->opcode;
    req->size_in = para->size_in;
    req->size_out = *para->size_out;
    req->tgid = kelvar_get_bare_tgid();
    req->client_pid = para->client_pid;
}

int kopa_set_send_cfg(ds_req *req, uint32_t remaining, uint32_t *copy_size, const void *inbuf,
                      uint32_t offset)
{
    if (req->size_in > KOPA_PKT_PAYLOAD) {
        *copy_size = remaining < KOPA_PKT_PAYLOAD ? remaining : KOPA_PKT_PAYLOAD;
        if (offset == 0)
            req->frag = KOPA_FRAG_FIRST;
        else
            req->frag = *copy_size != remaining ? KOPA_FRAG_MIDDLE : KOPA_FRAG_LAST;
    } else {
        req->frag = KOPA_FRAG_WHOLE;
        *copy_size = req->size_in;
    }
    req->copy_size = *copy_size;
    DRV_DBG("copy_size:%d", static_cast<int>(*copy_size));

    if (*copy_size != 0 && inbuf != nullptr) {
        int ret = bounded_copy(req->info, sizeof(req->info),
                               static_cast<const uint8_t *>(inbuf) + offset, *copy_size);
        if (ret != 0) {
            DRV_ERR("kopa memcpy data to info failed ret[%d] dst_len[%d], off_set[%d], "
                    "src_len[%u]",
                    ret, static_cast<int>(sizeof(req->info)), static_cast<int>(offset), *copy_size);
            return ret;
        }
    }
    return 0;
}

int kopa_send(uint32_t logic_id, network_channel_para *para, ds_req *req, ds_rsp *rsp)
{
    uint32_t remaining = para->size_in;
    uint32_t offset = 0;
    int32_t last_result = 0;
    req->direction = KOPA_DIR_SEND;

    for (;;) {
        uint32_t copy_size = 0;
        int ret = kopa_set_send_cfg(req, remaining, &copy_size, para->inbuf, offset);
        if (ret != 0) {
            DRV_ERR("dev %d set send cfg failed ret %d", static_cast<int>(logic_id), ret);
            para->result = last_result;
            return ret;
        }

        unsigned int rsp_len = KOPA_RSP_SIZE;
        ret = kopa_cmd_get_network_device_info(logic_id, req, KOPA_REQ_SIZE, rsp, &rsp_len);
        if (ret != 0 || rsp_len != KOPA_RSP_SIZE) {
            DRV_ERR("logic_id %d kopa get network info failed ret %d, ret_size %u != rsp_size %u",
                    static_cast<int>(logic_id), ret, rsp_len, KOPA_RSP_SIZE);
            para->result = last_result;
            return kErrnoInval;
        }
        last_result = rsp->result;
        if (rsp->result != 0) {
            DRV_ERR("logic_id %d kopa get result %d != 0", static_cast<int>(logic_id), rsp->result);
            para->result = rsp->result;
            return 0;
        }

        remaining -= copy_size;
        offset += copy_size;
        if (req->frag == KOPA_FRAG_LAST || req->frag == KOPA_FRAG_WHOLE || remaining == 0)
            break;
    }
    para->result = last_result;
    return 0;
}

int kopa_cmd_get_outbuf_from_every_pkt(const ds_rsp *rsp, void *outbuf, uint32_t orig_len,
                                       uint32_t *offset, uint32_t *remaining)
{
    if ((orig_len <= KOPA_PKT_PAYLOAD && rsp->frag != KOPA_FRAG_WHOLE) ||
        (orig_len > KOPA_PKT_PAYLOAD && rsp->frag == KOPA_FRAG_FIRST)) {
        DRV_ERR("error rsp from rdfx, orig_len %u, data frag %d", orig_len,
                static_cast<int>(rsp->frag));
        return kErrnoInval;
    }
    if (rsp->data_len == 0 || outbuf == nullptr || rsp->data_len > KOPA_PKT_PAYLOAD)
        return 0;

    DRV_DBG("kopa get one piece len %u, offset %d", rsp->data_len, static_cast<int>(*offset));
    int ret = bounded_copy(static_cast<uint8_t *>(outbuf) + *offset, *remaining, rsp->info,
                           rsp->data_len);
    if (ret != 0) {
        DRV_ERR("kopa memcpy outbuf fail ret[%d], dst_len[%u], src_len[%u]", ret, *remaining,
                rsp->data_len);
        return ret;
    }
    // The bounded copy already refuses an oversized piece; kept as the explicit length rule.
    if (rsp->data_len > *remaining) {
        DRV_ERR("one piece len %u is bigger than recv len %u", rsp->data_len, *remaining);
        return kErrnoInval;
    }
    *offset += rsp->data_len;
    *remaining -= rsp->data_len;
    return 0;
}

int kopa_recv(uint32_t logic_id, network_channel_para *para, ds_req *req, ds_rsp *rsp)
{
    uint32_t offset = 0;
    uint32_t remaining = *para->size_out;
    const uint32_t orig_len = remaining;
    req->direction = KOPA_DIR_FETCH;

    for (;;) {
        int ret =
            kopa_cmd_get_outbuf_from_every_pkt(rsp, para->outbuf, orig_len, &offset, &remaining);
        if (ret != 0) {
            DRV_ERR("logic_id %d kopa get outbuf failed ret %d", static_cast<int>(logic_id), ret);
            para->result = rsp->result;
            return ret;
        }
        para->copied = offset;
        // The size word ends as capacity plus bytes received; no operation reads it back.
        *para->size_out += rsp->data_len;
        if (rsp->frag == KOPA_FRAG_WHOLE || rsp->frag == KOPA_FRAG_LAST)
            return 0;
        if (remaining == 0 && rsp->frag == KOPA_FRAG_MIDDLE) {
            DRV_ERR("recv len is zero but pkt is not last or one pkt");
            return kErrnoInval;
        }

        req->frag = rsp->frag;
        unsigned int rsp_len = KOPA_RSP_SIZE;
        ret = kopa_cmd_get_network_device_info(logic_id, req, KOPA_REQ_SIZE, rsp, &rsp_len);
        if (ret != 0 || rsp_len != KOPA_RSP_SIZE || rsp->data_len == 0 ||
            rsp->data_len > KOPA_PKT_PAYLOAD) {
            DRV_ERR("logic_id %d kopa get network info failed ret %d, ret_size is %u, "
                    "rsp_head_len %u",
                    static_cast<int>(logic_id), ret, rsp_len, rsp->data_len);
            return kErrnoInval;
        }
        if (rsp->result != 0) {
            DRV_ERR("logic_id %d kopa get result %d != 0", static_cast<int>(logic_id), rsp->result);
            para->result = rsp->result;
            return 0;
        }
    }
}

void kopa_cmd_cleanup_info(ds_req *req, ds_rsp *rsp)
{
    int ret = bounded_wipe(req->info, sizeof(req->info), KOPA_PKT_PAYLOAD);
    if (ret != 0)
        DRV_ERR("memset_s ds_req.info fail ret[%d]", ret);
    ret = bounded_wipe(rsp->info, sizeof(rsp->info), KOPA_PKT_PAYLOAD);
    if (ret != 0)
        DRV_ERR("memset_s ds_rsp.info fail ret[%d]", ret);
}

} // namespace

int kopa_network_transmission_channel(uint32_t logic_id, network_channel_para *para)
{
    ds_req req;
    ds_rsp rsp;
    memset(&req, 0, sizeof(req));
    memset(&rsp, 0, sizeof(rsp));

    if (logic_id > kMaxLogicId || para == nullptr) {
        DRV_ERR("Invalid input param. (logic_id=%d)", static_cast<int>(logic_id));
        return kErrnoInval;
    }
    int ret = kopa_network_transmission_channel_para_check(para);
    if (ret != 0) {
        DRV_ERR("invaild para input %d, logic_id %d", ret, static_cast<int>(logic_id));
        return ret;
    }

    kopa_network_transmission_channel_cmd_init(logic_id, para, &req);
    ret = kopa_send(logic_id, para, &req, &rsp);
    if (ret != 0) {
        DRV_ERR("kopa send failed %d, logic_id %d", ret, static_cast<int>(logic_id));
    } else if (para->result == 0) {
        ret = kopa_recv(logic_id, para, &req, &rsp);
        if (ret != 0)
            DRV_ERR("kopa recv failed %d, logic_id %d", ret, static_cast<int>(logic_id));
    }

    kopa_cmd_cleanup_info(&req, &rsp);
    return ret;
}
