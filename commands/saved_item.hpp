// What a saved setting is: one descriptor per item that the tool saves in /etc/vorn.conf for
// recovery, defined beside its command and collected, in replay order, in one table. Recovery,
// vornctl (show, verify, lint, metrics, apply), the JSON schema and the Ansible options are driven
// by it or checked against it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "commands/setting.hpp"
#include "config/store.hpp"

/// The type of a saved value, as a program reading it would type it.
enum class ItemKind : uint8_t {
    kNumber,     ///< decimal digits
    kNumberList, ///< eight numbers separated by "," (one per priority or traffic class)
    kIpv4,       ///< dotted quad
    kMac,        ///< XX:XX:XX:XX:XX:XX, either case
    kDscpMap,    ///< "dscp:tc" entries separated by ","
    kEntries,    ///< a list of saved lines, one entry each (routes, ARP entries, policy lines)
};

/// "number", "number-list", "ipv4", "mac", "dscp-map", "entries".
[[nodiscard]] const char *item_kind_word(ItemKind kind);

/// One entry of a list, in the saved form: what identifies it and what it holds.
struct ItemEntry {
    std::string id;    ///< "address A netmask M", "dev ethN ip A", ...
    std::string value; ///< "gateway G", "mac M", ... ("" when the entry is all identity)
    /// The entry as one text, in the order its line is written.
    std::string text;
};

/// What the device holds for an item, in the saved form.
struct ItemLive {
    int ret = 0;                      ///< the read's result (0, or the device's answer)
    std::optional<std::string> value; ///< value item
    std::vector<ItemEntry> entries;   ///< list item
    std::optional<uint32_t> holder;   ///< gateway: physical id of the device holding it
    std::string error;                ///< why the value is missing, when ret is 0
};

/// The saved entries of a list item of one device, read as its replay reads them.
struct ItemSavedList {
    std::vector<ItemEntry> entries;
    std::vector<std::string> refused; ///< lines the replay's checkers refuse
    bool any = false;                 ///< whether the device has any line of the list
    std::string error;                ///< what stops the replay of every device, if anything
};

struct SavedItem {
    const char *key; ///< the item ("mtu": key "mtu_<phy_id>"), or the list's name ("arp")
    uint32_t buffer; ///< bytes recovery reads the value into; 0 for a list
    ItemKind kind;
    const char *what; ///< what it is, for texts ("MTU")
    /// The check replay runs on the saved value (on the whole line of a list), with no device
    /// and no output: 0, or the code replay fails with.
    int32_t (*check)(const char *value);
    /// Reads the device's value (or entries) in the saved form.
    ItemLive (*live)(uint32_t logic_id);
    /// The replay routine of the step this item opens, with its name; null for the later items
    /// of a step (the partner of a pair, the auto-adaptation after the static speed).
    int32_t (*replay)(DevRef dev, const ConfView &conf) = nullptr;
    const char *replay_name = nullptr;
    /// The words after "vorn_tool -i <id>" that set and save it, {name} standing for the value
    /// of the item `name` ("-mtu -s size {mtu}"); null for a list without a command.
    const char *set_words = nullptr;
    /// Value: the saved text in the form the device's value is printed in; nullopt when it does
    /// not read as its kind.
    std::optional<std::string> (*canonical)(std::string_view saved) = nullptr;
    /// Value: checks and sets it on the device as replay does, and saves nothing.
    int32_t (*set)(DevRef dev, const char *value, SetMode mode) = nullptr;
    /// Pair: the item recovery replays only together with this one, and the set of both
    /// (this item's value first) in place of `set`.
    const char *partner = nullptr;
    int32_t (*set_pair)(DevRef dev, const char *value, const char *partner_value,
                        SetMode mode) = nullptr;
    /// List: the saved key of device `dev` ("arp_<logic_id>") and its entries read from `conf`.
    std::string (*list_key)(DevRef dev) = nullptr;
    ItemSavedList (*saved_list)(std::string_view conf, DevRef dev) = nullptr;
    uint32_t max_entries = 0; ///< list: the most entries the device holds; 0 when unbounded
    /// List of saved command lines: the item of their keys ("arp": lines "arp_<logic_id>=...").
    const char *line_key = nullptr;
    /// Value whose range the tool leaves to the device: the range the device announces, checked
    /// by lint only. 0 or the code of a value outside it.
    int32_t (*device_check)(const char *value) = nullptr;
    /// The Ansible module and option that set it, or null when no module does.
    const char *ansible_module = nullptr;
    const char *ansible_option = nullptr;
};

/// Every saved item, in the order recovery replays them (the address first: the gateway and the
/// routes need its segment). Each is defined beside its command.
#define VORN_SAVED_ITEMS(X)                                                                        \
    X(kAddressItem)                                                                                \
    X(kNetmaskItem)                                                                                \
    X(kGatewayItem)                                                                                \
    X(kNetdetectItem)                                                                              \
    X(kMtuItem)                                                                                    \
    X(kMacAddrItem)                                                                                \
    X(kDscpTcItem)                                                                                 \
    X(kStaticSpeedItem)                                                                            \
    X(kAutoAdaptItem)                                                                              \
    X(kBwLimitItem)                                                                                \
    X(kRoutesItem)                                                                                 \
    X(kRocePortItem)                                                                               \
    X(kArpItem)                                                                                    \
    X(kIpRulesItem)                                                                                \
    X(kIpRoutesItem)                                                                               \
    X(kBitmapItem)                                                                                 \
    X(kTcBwItem)                                                                                   \
    X(kTcModeItem)                                                                                 \
    X(kPrioTcItem)                                                                                 \
    X(kEncodingItem)                                                                               \
    X(kSendArpPeriodItem)                                                                          \
    X(kSendArpStatusItem)

#define VORN_DECLARE_SAVED_ITEM(name) extern const SavedItem name;
VORN_SAVED_ITEMS(VORN_DECLARE_SAVED_ITEM)
#undef VORN_DECLARE_SAVED_ITEM

/// Every saved item, in the order recovery replays them.
extern const std::span<const SavedItem *const> g_saved_items;

/// The item of key (or list name) `key`, or null.
[[nodiscard]] const SavedItem *saved_item(std::string_view key);

/// Canonical forms shared by the items of one kind.
[[nodiscard]] std::optional<std::string> item_canonical_ipv4(std::string_view saved);
[[nodiscard]] std::optional<std::string> item_canonical_number(std::string_view saved);
[[nodiscard]] std::optional<std::string> item_canonical_mac(std::string_view saved);
[[nodiscard]] std::optional<std::string> item_canonical_list(std::string_view saved);
[[nodiscard]] std::optional<std::string> item_canonical_dscp(std::string_view saved);

/// The text of an IPv4 address in network byte order.
[[nodiscard]] std::string item_ipv4_text(uint32_t address);
/// Eight (or `count`) numbers separated by ",".
[[nodiscard]] std::string item_list_text(const uint32_t *values, size_t count);
/// A live read of a single number: its text, or the device's answer.
[[nodiscard]] ItemLive item_live_number(int ret, uint32_t value);
