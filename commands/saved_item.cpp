// The forms shared by the saved items of one kind: canonical texts and live values.
#include "commands/saved_item.hpp"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "base/text.hpp"
#include "commands/qos_settings.hpp"

const char *item_kind_word(ItemKind kind)
{
    switch (kind) {
    case ItemKind::kNumber:
        return "number";
    case ItemKind::kNumberList:
        return "number-list";
    case ItemKind::kIpv4:
        return "ipv4";
    case ItemKind::kMac:
        return "mac";
    case ItemKind::kDscpMap:
        return "dscp-map";
    case ItemKind::kEntries:
        return "entries";
    }
    return "entries";
}

std::string item_ipv4_text(uint32_t address)
{
    char text[INET_ADDRSTRLEN] = {};
    in_addr addr{address};
    return inet_ntop(AF_INET, &addr, text, sizeof(text)) != nullptr ? text : "?";
}

std::string item_list_text(const uint32_t *values, size_t count)
{
    std::string text;
    for (size_t i = 0; i < count; ++i)
        text += (i == 0 ? "" : ",") + std::to_string(values[i]);
    return text;
}

ItemLive item_live_number(int ret, uint32_t value)
{
    ItemLive live;
    live.ret = ret;
    if (ret == 0)
        live.value = std::to_string(value);
    return live;
}

std::optional<std::string> item_canonical_ipv4(std::string_view saved)
{
    in_addr addr{};
    if (inet_pton(AF_INET, std::string(saved).c_str(), &addr) != 1)
        return std::nullopt;
    return item_ipv4_text(addr.s_addr);
}

std::optional<std::string> item_canonical_number(std::string_view saved)
{
    if (saved.empty() || saved.size() > 9 ||
        !std::all_of(saved.begin(), saved.end(), [](char c) { return isdigit(c) != 0; }))
        return std::nullopt;
    return std::to_string(strtoul(std::string(saved).c_str(), nullptr, 10));
}

std::optional<std::string> item_canonical_mac(std::string_view saved)
{
    const std::string text(saved);
    if (text.size() != kMacTextLen || mac_text_scan(text.c_str(), nullptr) != -1)
        return std::nullopt;
    std::string lower = text;
    for (char &c : lower)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return lower;
}

std::optional<std::string> item_canonical_list(std::string_view saved)
{
    std::vector<uint32_t> values;
    size_t start = 0;
    for (;;) {
        const size_t comma = saved.find(',', start);
        const std::string_view entry = saved.substr(start, comma - start);
        const auto number = item_canonical_number(entry);
        if (!number || entry.size() > 3)
            return std::nullopt;
        values.push_back(static_cast<uint32_t>(strtoul(number->c_str(), nullptr, 10)));
        if (comma == std::string_view::npos)
            break;
        start = comma + 1;
    }
    if (values.size() != kQosClasses)
        return std::nullopt;
    return item_list_text(values.data(), values.size());
}

std::optional<std::string> item_canonical_dscp(std::string_view saved)
{
    uint8_t tc[kDscpValues];
    if (qos_read_dscp_list(saved, tc) != kOk)
        return std::nullopt;
    std::string list;
    for (uint32_t d = 0; d < kDscpValues; ++d) {
        if (tc[d] != kDscpNotSaved)
            list += (list.empty() ? "" : ",") + std::to_string(d) + ":" + std::to_string(tc[d]);
    }
    return list;
}
