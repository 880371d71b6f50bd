// The catalogue of firmware operations, as the emulator looks them up: name, opcode and sizes.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/kopa_platform.h"

namespace kopa_emu
{

/// One row of the operation catalogue; sizes may be KOPA_SIZE_CALLER.
struct OpInfo {
    std::string_view name; ///< without the "kopa_" prefix, e.g. "set_mtu"
    uint32_t opcode;
    uint32_t size_in;
    uint32_t size_out;
};

inline constexpr OpInfo kOperations[] = {
#define KOPA_EMU_OP_ROW(name, opcode, in, out) {#name, (opcode), (in), (out)},
    KOPA_OPERATIONS(KOPA_EMU_OP_ROW)
#undef KOPA_EMU_OP_ROW
};

/// The row of `opcode`, or nullptr for an opcode the firmware does not know.
constexpr const OpInfo *find_op(uint32_t opcode)
{
    for (const OpInfo &op : kOperations) {
        if (op.opcode == opcode)
            return &op;
    }
    return nullptr;
}

/// The row named `name`, with or without the "kopa_" prefix; nullptr when unknown.
constexpr const OpInfo *find_op(std::string_view name)
{
    if (name.starts_with("kopa_"))
        name.remove_prefix(5);
    for (const OpInfo &op : kOperations) {
        if (op.name == name)
            return &op;
    }
    return nullptr;
}

} // namespace kopa_emu
