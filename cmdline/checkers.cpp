// Argument checkers shared by the command handlers.
#include "cmdline/checkers.hpp"

#include <arpa/inet.h>
#include <cerrno>

#include <cstdio>
#include <cstring>

#include "base/result.hpp"
#include "base/text.hpp"
#include "log/driver_log.hpp"

namespace
{

constexpr size_t kRoundTripLen = 30;

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

// Scans one integer with `fmt`, prints it back and compares: the text must be the canonical
// form, which refuses leading zeros, signs, blanks and trailing words without further rules.
int32_t round_trip_one(const char *text, const char *fmt, int *value, const char *what,
                       const char *what_cap)
{
    if (text == nullptr)
        return kErrParamInvalid;
    int ret = sscanf(text, fmt, value);
    if (ret != 1) {
        DRV_ERR("Get %s val failed. (ret=%d)", what, ret);
        return kErrParamInvalid;
    }
    char cmp[kRoundTripLen];
    ret = snprintf(cmp, sizeof(cmp), fmt, *value);
    if (ret < 0 || static_cast<size_t>(ret) >= sizeof(cmp)) {
        DRV_ERR("Set %s string failed. (ret=%d)", what, ret);
        return kErrParamInvalid;
    }
    if (strcmp(text, cmp) != 0) {
        DRV_ERR("%s string cmp failed. (str=\"%s\"; cmp=\"%s\")", what_cap, text, cmp);
        return kErrParamInvalid;
    }
    return kOk;
}

using Checker = int32_t (*)(const char *);

struct param_check_row {
    const char *keyword;
    Checker check;
};

constexpr param_check_row g_param_check_tab[] = {
    {"ip", tool_check_ip},   {"via", tool_check_ip},      {"mac", tool_check_mac},
    {"dev", tool_check_dev}, {"table", tool_check_table}, {"ip_mask", tool_check_ip_mask_bit},
    {"dir", tool_check_dir}, {"-s", tool_check_num},      {"-n", tool_check_num_iter},
    {"-d", tool_check_vfe},  {"address", tool_check_ip},
};

int str_to_off_conversion(char c, int base)
{
    if (is_digit(c))
        return c - '0';
    if (base == 16 && c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (base == 16 && c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return kErrnoInval;
}

} // namespace

int32_t tool_check_ip(const char *text)
{
    if (text == nullptr)
        return kErrParamInvalid;
    int ip[4] = {};
    int ret = sscanf(text, "%d.%d.%d.%d", &ip[0], &ip[1], &ip[2], &ip[3]);
    if (ret != 4) {
        DRV_ERR("Get ip val failed. (ret=%d)", ret);
        return kErrParamInvalid;
    }
    char cmp[kRoundTripLen];
    ret = snprintf(cmp, sizeof(cmp), "%d.%d.%d.%d", ip[0], ip[1], ip[2], ip[3]);
    if (ret < 0 || static_cast<size_t>(ret) >= sizeof(cmp)) {
        DRV_ERR("Set ip string failed. (ret=%d)", ret);
        return kErrParamInvalid;
    }
    if (strcmp(text, cmp) != 0) {
        DRV_ERR("Ip string cmp failed. (str=\"%s\"; cmp=\"%s\")", text, cmp);
        return kErrParamInvalid;
    }
    for (int i = 0; i < 4; ++i) {
        if (ip[i] < 0 || ip[i] > 255) {
            DRV_ERR("Ip val check failed. (ip[%d]=%d)", i, ip[i]);
            return kErrParamInvalid;
        }
    }
    return kOk;
}

int32_t tool_check_ip_mask_bit(const char *text)
{
    int bits = 0;
    int32_t ret = round_trip_one(text, "%d", &bits, "ip mask bit", "Ip mask bit");
    if (ret != kOk)
        return ret;
    if (bits < 0 || bits > 32) {
        DRV_ERR("Mask bit val check failed. (mask_bit=%d)", bits);
        return kErrParamInvalid;
    }
    return kOk;
}

int32_t tool_check_dev(const char *text)
{
    int dev = 0;
    int32_t ret = round_trip_one(text, "eth%d", &dev, "dev", "Dev");
    if (ret != kOk)
        return ret;
    if (dev < 0 || dev > 7) {
        DRV_ERR("Dev val check failed. (val=%d)", dev);
        return kErrParamInvalid;
    }
    return kOk;
}

int32_t tool_check_table(const char *text)
{
    int table = 0;
    int32_t ret = round_trip_one(text, "%d", &table, "table", "Table");
    if (ret != kOk)
        return ret;
    if (table < 0 || table > 255) {
        DRV_ERR("Table val check failed. (val=%d)", table);
        return kErrParamInvalid;
    }
    return kOk;
}

int32_t tool_check_mac(const char *text)
{
    if (text == nullptr || strnlen(text, kMacTextLen + 1) != kMacTextLen) {
        DRV_ERR("Mac length check failed.");
        return kErrParamInvalid;
    }
    const int bad = mac_text_scan(text, nullptr);
    if (bad >= 0) {
        DRV_ERR("Mac char check failed. (index=%d)", bad);
        return kErrParamInvalid;
    }
    return kOk;
}

int32_t tool_check_dir(const char *text)
{
    if (text != nullptr && (strcmp(text, "from") == 0 || strcmp(text, "to") == 0))
        return kOk;
    DRV_ERR("Dir check failed.");
    return kErrParamInvalid;
}

int32_t tool_check_num(const char *text)
{
    if (text == nullptr)
        return kErrParamInvalid;
    size_t digits = strspn(text, "0123456789");
    if (digits != strlen(text)) {
        DRV_ERR("Num check failed. (str=\"%s\")", text);
        return kErrParamInvalid;
    }
    return kOk;
}

int32_t tool_check_num_iter(const char *text)
{
    constexpr uint32_t kIterMin = 5;
    constexpr uint32_t kIterMax = 20000;
    int32_t ret = tool_check_num(text);
    if (ret != kOk)
        return ret;
    uint32_t value = 0;
    for (const char *p = text; *p != '\0'; ++p) {
        value = value * 10 + static_cast<uint32_t>(*p - '0');
        if (value > kIterMax)
            break;
    }
    if (value < kIterMin || value > kIterMax) {
        DRV_ERR("Num iter check failed. (str=\"%s\")", text);
        return kErrParamInvalid;
    }
    return kOk;
}

int32_t tool_check_vfe(const char *text)
{
    int vfe = -1;
    // No round trip here: trailing text after the number is accepted.
    int ret = text != nullptr ? sscanf(text, "vfe_%d", &vfe) : -1;
    if (ret != 1 || vfe < 0 || vfe > 7) {
        DRV_ERR("Set vfe dev string failed. (ret=%d;str=\"%s\"; cmp=\"%s\")", ret,
                text != nullptr ? text : "", "vfe_0~vfe_7");
        return kErrParamInvalid;
    }
    return kOk;
}

int check_str_is_num(const char *text, uint32_t length)
{
    if (text == nullptr)
        return kErrnoInval;
    for (uint32_t i = 0; i < length; ++i) {
        if (!is_digit(text[i]))
            return kErrnoInval;
    }
    return 0;
}

int32_t tool_para_overflow_check(const char *text, uint32_t max, int32_t err_code)
{
    constexpr int kDigitsRead = 8;
    if (text == nullptr)
        return err_code;
    int64_t value = 0;
    for (int i = 0; i < kDigitsRead && text[i] != '\0'; ++i) {
        value = value * 10 + (text[i] - '0');
        if (value > static_cast<int64_t>(max))
            return err_code;
    }
    return kOk;
}

int32_t tool_inet_pton_ipv4_address(const char *text, uint32_t *address)
{
    if (text == nullptr || address == nullptr) {
        DRV_ERR("Input param is NULL.");
        return kErrSysNull;
    }
    in_addr addr{};
    int ret = inet_pton(AF_INET, text, &addr);
    if (ret != 1) {
        DRV_ERR("Invalid IPv4 address. (ret=%d; errno=%d)", ret, errno);
        return kErrReported;
    }
    *address = addr.s_addr;
    return kOk;
}

int32_t tool_ipv4_int_to_str(uint32_t address, char *buf, uint32_t size)
{
    if (buf == nullptr) {
        DRV_ERR("Input param is NULL.");
        return kErrSysNull;
    }
    int ret = snprintf(buf, size, "%u.%u.%u.%u", address & 0xFFu, (address >> 8) & 0xFFu,
                       (address >> 16) & 0xFFu, (address >> 24) & 0xFFu);
    if (ret < 0 || static_cast<uint32_t>(ret) >= size) {
        DRV_ERR("Format ip string failed. (ret=%d; size=%u)", ret, size);
        return kErrSysCopy;
    }
    return kOk;
}

int32_t tool_check_ip_net_segment(const char *ip, const char *gateway, const char *netmask)
{
    uint32_t src = 0;
    uint32_t dst = 0;
    uint32_t mask = 0;
    int32_t ret = tool_inet_pton_ipv4_address(ip, &src);
    if (ret == kOk)
        ret = tool_inet_pton_ipv4_address(gateway, &dst);
    if (ret != kOk) {
        (void)fputs("The IP address is invalid!\n", stderr);
        return ret;
    }
    ret = tool_inet_pton_ipv4_address(netmask, &mask);
    if (ret != kOk) {
        (void)fputs("The netmask is invalid!\n", stderr);
        return ret;
    }
    DRV_DBG("check net segment! src_ip[0x%x] dst_ip[0x%x] mask[0x%x]", src, dst, mask);
    if (((src ^ dst) & mask) != 0) {
        DRV_ERR("src_ip[0x%x] and dst_ip[0x%x] are not the same net segment!", src, dst);
        return kErrGatewaySegment;
    }
    return kOk;
}

int32_t tool_check_param(const char *keyword, const char *value)
{
    if (keyword != nullptr) {
        for (const param_check_row &row : g_param_check_tab) {
            if (strcmp(keyword, row.keyword) == 0)
                return row.check(value);
        }
    }
    DRV_ERR("Find param failed. (prefix=\"%s\")", keyword != nullptr ? keyword : "");
    return kErrParamInvalid;
}

int32_t tool_get_param(int argc, char **argv, const char *keyword, char *out, uint32_t out_size)
{
    if (argv == nullptr || keyword == nullptr || out == nullptr) {
        DRV_ERR("Find param failed.");
        return kErrParamInvalid;
    }
    for (int i = 0; i + 1 < argc; i += 2) {
        if (strcmp(argv[i], keyword) != 0)
            continue;
        size_t len = strlen(argv[i + 1]);
        if (len >= out_size) {
            DRV_ERR("Get param copy failed.(ret=%d; max_len=%d; real_len=%d)", -34,
                    static_cast<int>(out_size), static_cast<int>(len));
            return kErrParamInvalid;
        }
        memcpy(out, argv[i + 1], len);
        return tool_check_param(keyword, out);
    }
    DRV_ERR("Find param failed.");
    return kErrParamInvalid;
}

int str_to_off_t(const char *text, int64_t *value)
{
    if (text == nullptr || value == nullptr)
        return -1;
    int base = 10;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text += 2;
    }
    int64_t result = 0;
    int64_t power = 1;
    bool power_overflow = false;
    for (size_t i = strlen(text); i-- > 0;) {
        int digit = str_to_off_conversion(text[i], base);
        if (digit < 0)
            return digit;
        if (digit != 0) {
            int64_t term = 0;
            if (power_overflow || __builtin_mul_overflow(power, digit, &term) ||
                __builtin_add_overflow(result, term, &result))
                return -1;
        }
        if (!power_overflow && __builtin_mul_overflow(power, base, &power))
            power_overflow = true;
    }
    *value = result;
    return 0;
}
