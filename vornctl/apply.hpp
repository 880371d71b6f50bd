// vornctl apply: the desired settings of a host's devices, from a document in the form of
// `show --json`, applied as one transaction.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vornctl/host_view.hpp"

/// One item of one device as the document wants it.
struct DesiredItem {
    std::string name;                 ///< the saved item ("mtu") or list ("routes")
    bool remove = false;              ///< null: not saved any more
    std::string value;                ///< value item, in the form its command takes
    std::vector<std::string> entries; ///< list item, each in the keyword form of its command
};

struct DesiredDevice {
    uint32_t phy_id = 0;
    std::vector<DesiredItem> items; ///< in replay order
};

/// Reads the desired devices from a `show --json` document. False, with the reason in `error`,
/// when it is not one or names an item, value or device wrongly.
[[nodiscard]] bool ctl_read_desired(const std::string &text, std::vector<DesiredDevice> *devices,
                                    std::string *error);

/// What a change does.
enum class ChangeOp : uint8_t {
    kRun,    ///< command lines of the tool, which set the device and save
    kUnsave, ///< the saved lines removed; the device keeps its value
};

enum class Outcome : uint8_t {
    kPlanned, ///< --check: what would be done
    kDone,
    kFailed,
    kUndone, ///< done, then undone when a later change failed
    kNotRun, ///< after the failure
};

/// One change of one item (or pair of items) of one device.
struct Change {
    uint32_t phy_id = 0;
    uint32_t logic_id = 0;
    std::string item;                     ///< the item, "address+netmask" for a pair
    std::optional<std::string> old_saved; ///< saved before, as read
    std::optional<std::string> old_live;  ///< on the device before, as read
    std::optional<std::string> wanted;    ///< the desired value; null: unsaved
    std::vector<std::string> saved_keys;  ///< kUnsave: the keys whose lines go
    ChangeOp op = ChangeOp::kRun;
    std::vector<std::vector<std::string>> commands; ///< kRun: the words after "vorn_tool"
    Outcome outcome = Outcome::kPlanned;
    int32_t code = 0;                       ///< the failing command's result
    std::optional<std::string> after_saved; ///< read back
    std::optional<std::string> after_live;
};

/// The least set of changes that brings `host` to `desired`, in replay order, device by device.
/// False, with the reason in `error`, when a desired device is not on the host or cannot be
/// read, or one item of a pair is given without the other and none is saved.
[[nodiscard]] bool ctl_plan(const HostView &host, const std::vector<DesiredDevice> &desired,
                            std::vector<Change> *changes, std::string *error);
