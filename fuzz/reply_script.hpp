// A firmware whose every reply record a fuzz input shapes (fragment code, data length, result,
// reply length and return value, piece by piece), for the targets that fuzz the replies the
// operations and the commands read. It answers through the scripted firmware of the device tests
// (tests/device/fake_firmware).
//
// One control byte per reply record, each followed by the values it asks for. A control byte of
// zero, and the end of the input, give what a correct firmware answers: the whole record the
// request asks for, cut into pieces of 2000 bytes.
#pragma once

#include <cstdint>

#include "fuzz/fuzz_support.hpp"

struct ReplyScript {
    FuzzBytes in{nullptr, 0};
    uint32_t left = 0;   ///< bytes of the natural reply still to hand out
    uint64_t copied = 0; ///< bytes of the answer pieces the channel takes (1..2000 each)
    unsigned calls = 0;
};

/// Makes the scripted firmware answer from `script` (the rest of the input) from now on, with
/// nothing yet handed out. Returns the script, whose `copied` tells the bytes of the pieces
/// that a channel can have taken.
const ReplyScript &reply_script_start(FuzzBytes script);
