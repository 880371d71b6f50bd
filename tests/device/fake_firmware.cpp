// The scripted exchange call and a capturing driver log. Definitions in the test program take
// precedence over the emulator libraries for calls from the tool's code.
#include "tests/device/fake_firmware.hpp"

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
