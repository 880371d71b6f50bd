// The host as vornctl sees it: for every device, each setting the tool knows read live from the
// device, beside the value saved for it in /etc/vorn.conf read with the store's own rules (a
// read is answered by the first line that begins with the key), in the order recovery replays
// them. show prints it, verify compares it, lint and metrics draw on it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "commands/saved_item.hpp"
#include "device/ops.hpp"

/// How an item's device value stands against its saved value.
enum class ItemState : uint8_t {
    kAgree,    ///< saved, and the device holds the saved value
    kDrift,    ///< saved, and the device holds another value
    kNotSaved, ///< nothing saved: whatever the device holds is no drift
    kUnusable, ///< a saved line exists that recovery skips or refuses (saved_error says why)
    kUnknown,  ///< saved, but the device value could not be read (live_error says why)
};

/// The word of a state in the JSON and the table: "agree", "drift", "not-saved", "unusable",
/// "unknown".
[[nodiscard]] const char *ctl_state_word(ItemState state);

/// One difference between the saved and the device value, in the saved form.
struct ItemDiff {
    std::string saved;
    std::optional<std::string> live; ///< nullopt when the device holds no such entry or value
    std::string note;                ///< what the text adds after the device's value, or ""
};

/// One saved item (or list of saved lines) of a device.
struct ItemView {
    const char *name = "";            ///< the saved item ("mtu") or list ("routes", "arp", ...)
    std::string key;                  ///< what the store is asked: "mtu_3", or the lines of a list
    bool list = false;                ///< entries (routes, ARP entries, policy rules and routes)
    uint32_t buffer = 0;              ///< the recovery buffer of a value item, bytes
    std::optional<std::string> saved; ///< value item: the saved text
    /// value item: the saved text in the device value's form (its canonical form), when it reads
    std::optional<std::string> saved_canon;
    std::optional<std::vector<std::string>> saved_entries; ///< list: the saved entries
    std::string saved_error;                               ///< why saved lines cannot be used
    std::optional<std::string> live;                       ///< value item, in the saved form
    std::optional<std::vector<std::string>> live_entries;  ///< list, in the saved form
    std::string live_error;         ///< why the device value could not be read
    std::optional<uint32_t> holder; ///< gateway: physical id of the device holding the group's
    ItemState state = ItemState::kNotSaved;
    std::vector<ItemDiff> diffs; ///< for kDrift, one per difference
    /// List: saved entries past what the device holds, which recovery cannot apply.
    std::vector<std::string> unappliable;
    const SavedItem *def = nullptr; ///< the item's descriptor
};

/// One certificate information record the device keeps (a certificate, or the CRL).
struct CertView {
    uint32_t position = 0; ///< 0 the device certificate, 1..14 the CA levels, 15 the CRL
    std::string issuer;
    std::string not_before; ///< asctime form, UTC, as the device gives it
    std::string not_after;
};

/// The TLS suite of the device's management link.
struct TlsView {
    int ret = 0;          ///< the read's result; -2: no certificates installed
    bool tried = false;   ///< false when the device was not read
    uint32_t enabled = 0; ///< the TLS switch
    uint32_t alarm_days = 0;
    std::vector<CertView> certs;
    std::string not_after;                 ///< the earliest expiry of the installed items
    std::optional<int64_t> days_to_expiry; ///< whole days from now to not_after (negative: past)
};

struct DeviceView {
    uint32_t logic_id = 0;
    uint32_t phy_id = 0;
    int health_ret = 0;  ///< the health read's result
    uint32_t health = 0; ///< 0 ok, 1 minor, 2 major, 3 critical alarm, 0xFFFFFFFF gone
    /// Healthy enough to be read, as vorn_tool requires it (ok or minor alarm); an unhealthy
    /// device is not asked anything else.
    bool readable = false;
    std::optional<uint32_t> cfg_status; ///< recovery status: 0 none, 1 start, 2 fail, 3 success
    std::optional<bool> link_up;
    std::optional<std::string> vnic; ///< host-link address "A/M"
    TlsView tls;
    std::optional<kopa_netdev_stat> stats;    ///< the port's packet counters
    std::optional<kopa_optical_info> optical; ///< the optical module, when the cage holds one
    std::optional<std::string> firmware;      ///< the firmware version text, escaped
    std::vector<ItemView> items;              ///< in replay order
};

/// A device id that /etc/vorn.conf saves settings for and that no device of the host has: a
/// physical id (items and routes) or a logical id (ARP entries, policy rules and routes).
struct AbsentId {
    std::optional<uint32_t> phy_id;
    std::optional<uint32_t> logic_id;
};

struct HostView {
    int32_t list_ret = 0;            ///< 0, or the failure of the device list
    std::string conf_path;           ///< the configuration file
    int conf_ret = 0;                ///< 0, or the store's code when it could not be read
    std::string conf;                ///< its content as read
    std::vector<DeviceView> devices; ///< by physical id
    std::vector<AbsentId> absent;    ///< saved ids without a device (physical ones first)
};

/// Reads the host: the configuration file once, then every device (or only the device of
/// physical id `only`), live. Returns 0; 0x4001 when the devices cannot be listed; 0x1005 when
/// no device has the physical id `only`. A configuration file that cannot be read leaves
/// `conf_ret` set and every item unsaved.
[[nodiscard]] int32_t ctl_read_host(std::optional<uint32_t> only, HostView *host);

/// The id of a key "<item>_<id>" when the key is exactly that (at most four digits).
[[nodiscard]] std::optional<uint32_t> ctl_key_id(std::string_view key, std::string_view item);

/// Whether the file saves anything for `dev` (a saved value, an entry, or an unusable line).
[[nodiscard]] bool ctl_has_saved(const DeviceView &dev);

/// Whether every device the file saves settings for was present and verified: none absent, no
/// saved item of a present device left unread (an unhealthy device, a value not answered).
[[nodiscard]] bool ctl_all_verified(const HostView &host);

/// The parts of `text` between the separators `sep` (one part for a text without any).
[[nodiscard]] std::vector<std::string> ctl_split(const std::string &text, char sep);

/// The item `name` of `dev`, or null.
[[nodiscard]] const ItemView *ctl_find_item(const DeviceView &dev, std::string_view name);

/// "ok", "minor alarm", "major alarm", "critical alarm", "gone" or "unknown".
[[nodiscard]] const char *ctl_health_word(const DeviceView &dev);

/// "NONE", "START", "FAIL", "SUCCESS" or "FAULT", as -cfg status prints it.
[[nodiscard]] const char *ctl_cfg_status_word(uint32_t status);

/// Seconds since the epoch of an asctime text without its newline ("Sun Nov 22 02:01:16 2026"),
/// read as UTC; nullopt when it does not read.
[[nodiscard]] std::optional<int64_t> ctl_asctime_utc(std::string_view text);
