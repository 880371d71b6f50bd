// The scripted exchange call and a capturing driver log. Definitions in the test program take
// precedence over the emulator libraries for calls from the tool's code.
#include "tests/device/fake_firmware.hpp"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

FakeFirmware &fake_firmware()
{
    static FakeFirmware fake;
    return fake;
}

void FakeFirmware::reset()
{
    answer = nullptr;
    requests.clear();
    log.clear();
}

void FakeFirmware::reply_short_by(uint32_t missing, uint8_t fill)
{
    answer = [missing, fill, left = uint32_t{0}](const ds_req &req, ds_rsp &rsp,
                                                 unsigned int &) mutable {
        if (req.direction == KOPA_DIR_SEND) {
            // Packets before the last of a long request are only acknowledged.
            if (req.frag == KOPA_FRAG_FIRST || req.frag == KOPA_FRAG_MIDDLE)
                return 0;
            left = req.size_out > missing ? req.size_out - missing : 0;
            if (left <= KOPA_PKT_PAYLOAD) {
                rsp = fake_piece(0, KOPA_FRAG_WHOLE, left, fill);
                return 0;
            }
        }
        const uint32_t len = std::min(left, KOPA_PKT_PAYLOAD);
        left -= len;
        rsp = fake_piece(0, left == 0 ? KOPA_FRAG_LAST : KOPA_FRAG_MIDDLE, len, fill);
        return 0;
    };
}

bool FakeFirmware::logged(const std::string &fragment) const
{
    for (const auto &line : log)
        if (line.find(fragment) != std::string::npos)
            return true;
    return false;
}

ds_rsp fake_piece(int32_t result, uint32_t frag, uint32_t len, uint8_t fill)
{
    ds_rsp rsp;
    memset(&rsp, 0, sizeof(rsp));
    rsp.result = result;
    rsp.frag = frag;
    rsp.data_len = len;
    memset(rsp.info, fill, len <= KOPA_PKT_PAYLOAD ? len : KOPA_PKT_PAYLOAD);
    return rsp;
}

extern "C" int kopa_cmd_get_network_device_info(unsigned int /*logic_id*/, void *req,
                                                unsigned int req_len, void *rsp,
                                                unsigned int *rsp_len)
{
    FakeFirmware &fake = fake_firmware();
    if (req_len != KOPA_REQ_SIZE || rsp_len == nullptr || *rsp_len != KOPA_RSP_SIZE)
        return -22;
    ds_req copy;
    memcpy(&copy, req, sizeof(copy));
    fake.requests.push_back(copy);
    auto *out = static_cast<ds_rsp *>(rsp);
    memset(out, 0, sizeof(*out));
    return fake.answer ? fake.answer(copy, *out, *rsp_len) : 0;
}

extern "C" unsigned int kelvar_get_bare_tgid(void)
{
    return kFakeTgid;
}
extern "C" int kelvar_log_get_level(void)
{
    return 7;
}
extern "C" const char *kelvar_log_get_level_str(int)
{
    return "[ERROR]";
}
extern "C" const char *kelvar_log_get_time_str(void)
{
    return "[time]";
}
extern "C" const char *kelvar_log_get_module_str(int)
{
    return "DEVMNG";
}

extern "C" void kelvar_log_print(int, int, const char *fmt, ...)
{
    char line[4096];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(line, sizeof(line), fmt, ap);
    va_end(ap);
    fake_firmware().log.emplace_back(line);
}
