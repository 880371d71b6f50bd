// Steps the QoS commands share: the reading of their numbers and lists of eight, and the save
// of several lines of a device as one change.
#include <cstdio>
#include <string_view>

#include "base/result.hpp"
#include "base/text.hpp"
#include "commands/qos_settings.hpp"
#include "config/store.hpp"
#include "log/driver_log.hpp"

int32_t qos_read_number(std::string_view text, size_t max_len, uint32_t max, int32_t range_code,
                        uint32_t *value)
{
    if (text.empty())
        return kErrParamInvalid;
    for (char c : text) {
        if (c < '0' || c > '9')
            return kErrParamInvalid;
    }
    // Limited before conversion: no text can wrap. A leading zero is no number of the tool's.
    if (text.size() > max_len || !is_plain_number(text))
        return range_code;
    uint32_t number = 0;
    for (char c : text)
        number = number * 10 + static_cast<uint32_t>(c - '0');
    if (number > max)
        return range_code;
    *value = number;
    return kOk;
}

int32_t qos_read_list(std::string_view text, size_t max_len, uint32_t max, int32_t range_code,
                      QosList &values)
{
    // The shape first: a list of another count, or with an entry that is not a number, is
    // malformed, whatever its other entries hold.
    std::string_view entries[kQosClasses];
    std::string_view rest = text;
    for (uint32_t i = 0; i < kQosClasses; ++i) {
        const size_t comma = rest.find(',');
        const bool last = i + 1 == kQosClasses;
        // Every entry but the last ends at a ",", the last at the end of the list.
        if (last != (comma == std::string_view::npos))
            return kErrParamInvalid;
        entries[i] = rest.substr(0, comma);
        if (entries[i].empty() || entries[i].find_first_not_of("0123456789") != rest.npos)
            return kErrParamInvalid;
        if (!last)
            rest.remove_prefix(comma + 1);
    }
    for (uint32_t i = 0; i < kQosClasses; ++i) {
        const int32_t ret = qos_read_number(entries[i], max_len, max, range_code, &values[i]);
        if (ret != kOk)
            return ret;
    }
    return kOk;
}

bool qos_format_list(const QosList &values, char *out, size_t size)
{
    size_t used = 0;
    for (uint32_t i = 0; i < kQosClasses; ++i) {
        const int n = snprintf(out + used, size - used, i == 0 ? "%u" : ",%u", values[i]);
        if (n < 0 || static_cast<size_t>(n) >= size - used)
            return false;
        used += static_cast<size_t>(n);
    }
    return true;
}

int32_t qos_save_failed(const CallSite &where, uint32_t phy_id, int32_t ret, const char *user_text)
{
    if (drv_log_enabled(KELVAR_LEVEL_ERROR))
        drv_log_write(KELVAR_LEVEL_ERROR, where.func, where.line, "write cfg error[%d], phy_id[%u]",
                      ret, phy_id);
    fputs(user_text, stderr);
    return ret;
}

int32_t qos_save_items(const CallSite &where, uint32_t phy_id, std::span<const QosSaved> items,
                       const char *user_text)
{
    ConfSession conf(ConfAccess::kWrite);
    int ret = conf.open();
    for (const QosSaved &saved : items) {
        if (ret == 0)
            ret = conf.write_item(phy_id, saved.item, saved.value);
    }
    if (ret == 0)
        ret = conf.commit();
    return ret == 0 ? kOk : qos_save_failed(where, phy_id, ret, user_text);
}
