// Shared steps of the diagnostics and statistics commands.
#include "commands/diag_common.hpp"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "base/result.hpp"
#include "base/text.hpp"
#include "log/driver_log.hpp"

namespace
{

constexpr const char *kFecWords[] = {"off", "rs-fec", "base-r fec"};
constexpr const char *kDuplexWords[] = {"half", "full"};

const char *word_or_number(const char *const *words, uint32_t count, uint32_t value, char *buf,
                           uint32_t size)
{
    if (value < count)
        return words[value];
    if (!format_text(buf, size, "unknown(%u)", value))
        return "unknown";
    return buf;
}

} // namespace

int32_t diag_device_failed(const CallSite &where, const char *what, int ret, uint32_t logic_id)
{
    if (drv_log_enabled(KELVAR_LEVEL_ERROR))
        drv_log_write(KELVAR_LEVEL_ERROR, where.func, where.line, "%s fail ret[%d] logic_id[%u]",
                      what, ret, logic_id);
    return kopa_err_to_vorn_err(ret);
}

int32_t diag_bad_value(const CallSite &where, const char *value, const char *keyword,
                       const char *expected)
{
    if (drv_log_enabled(KELVAR_LEVEL_ERROR))
        drv_log_write(KELVAR_LEVEL_ERROR, where.func, where.line,
                      "invalid %s value[%s], expected %s", keyword, value, expected);
    fprintf(stderr, "The value \"%s\" of %s is invalid, expected %s.\n", value, keyword, expected);
    return kErrParamInvalid;
}

bool diag_read_number(const char *text, uint32_t min, uint32_t max, uint32_t *out)
{
    const size_t len = strlen(text);
    // Ten digits hold any 32-bit value.
    if (len > 10 || !is_plain_number(text))
        return false;
    uint64_t value = 0;
    for (size_t i = 0; i < len; ++i)
        value = value * 10 + static_cast<uint64_t>(text[i] - '0');
    if (value < min || value > max)
        return false;
    *out = static_cast<uint32_t>(value);
    return true;
}

const char *diag_duplex_text(uint32_t duplex, char *buf, uint32_t size)
{
    return word_or_number(kDuplexWords, 2, duplex, buf, size);
}

const char *diag_fec_text(uint32_t fec, char *buf, uint32_t size)
{
    return word_or_number(kFecWords, 3, fec, buf, size);
}

const char *diag_speed_text(uint32_t mbps, char *buf, uint32_t size)
{
    if (mbps == 0 || !format_text(buf, size, "%u Mbit/s", mbps))
        return "unknown";
    return buf;
}

const char *diag_gbps_text(uint64_t mbps, char *buf, uint32_t size)
{
    if (!format_text(buf, size, "%llu.%03llu", static_cast<unsigned long long>(mbps / 1000),
                     static_cast<unsigned long long>(mbps % 1000)))
        return "?";
    return buf;
}

uint64_t diag_now_us()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000u + static_cast<uint64_t>(ts.tv_nsec) / 1000u;
}

void diag_sleep_ms(uint32_t ms)
{
    timespec left{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

void diag_progress(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vprintf(format, args);
    va_end(args);
    fflush(stdout);
}
