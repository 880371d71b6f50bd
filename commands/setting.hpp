// The contract of a setting routine: one per saved item, used by its command and by the replay
// of saved settings alike. It takes the device, the value as text and the mode, never an
// argument vector.
#pragma once

#include <cstdint>

#include "cmdline/cmd.hpp"

/// The device a setting is for: the logical id every device call takes, the physical id that
/// keys its saved lines.
struct DevRef {
    uint32_t logic_id;
    uint32_t phy_id;
};

/// Who sets: a command typed by the administrator, or the replay of a saved value.
enum class SetMode : uint8_t { kCommand = 1, kRecovery = 2 };

[[nodiscard]] inline DevRef dev_of(const cmd_parse_info *info)
{
    return {info->logic_id, info->phy_id};
}
